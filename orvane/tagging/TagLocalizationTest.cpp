#include <gtest/gtest.h>
#include <orvane/tagging/TagLocalization.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <set>
#include <string>

namespace orvane {
namespace {

using namespace std::string_view_literals;

std::optional<std::string> nameOf(std::string_view label) {
  const auto name = TagLocalization::italianName(label);
  return name ? std::optional(std::string(name->text())) : std::nullopt;
}

TEST(TagLocalization, NamesLabels) {
  const struct {
    std::string_view label;
    std::optional<std::string> name;
  } cases[] = {
      {"dog", "cane"},
      {"Dog", "cane"},
      {"DOG", "cane"},
      {"cats", "gatti"},
      {"Tv", "televisore"},
      {"fall", "autunno"},
      {"peach", "pesca"},
      {"fishing", "pesca"},
      {"outdoor", "all'aperto"},
      {"consumer electronics", "elettronica di consumo"},
      {"Fireworks", "fuochi d'artificio"},
      {"adulthood", "età adulta"},
      // Phrases before words.
      {"ice cream", "gelato"},
      {"Ice Cream", "gelato"},
      {"musical instrument", "strumento musicale"},
      {"musical_instrument", std::nullopt},
      // Word by word, in the order of the words.
      {"snow mountain", "neve montagna"},
      {"SNOW  Mountain", "neve montagna"},
      {" snow mountain ", "neve montagna"},
      {"dog dog", "cane cane"},
      {"ice  cream", std::nullopt},  // Two words, and "cream" has no entry.
      {"ice cream dog", std::nullopt},
      {"mountain zebra", std::nullopt},
      {"zebra", std::nullopt},
      {" dog ", std::nullopt},
      {"", std::nullopt},
      {"   ", std::nullopt},
      {"s", std::nullopt},
      {"dog\tcat", std::nullopt},
      {"dog\u00A0cat", std::nullopt},
      // Control characters are no letters and no spaces.
      {"ice\0cream"sv, std::nullopt},
      {"\x04og"sv, std::nullopt},
      {"dog\0"sv, std::nullopt},
      // Letters beyond ASCII whose lower-case forms begin with, or are, ASCII.
      {"\u212Aiwi", "kiwi"},
      {"\u212Aaya\u212A", "kayak"},
      {"S\u212AY dog", "cielo cane"},
      {"\u212A", std::nullopt},
      {"k\u0130wi", std::nullopt},
      {"\uFF24og", std::nullopt},
      {"dog\u0301", std::nullopt},
      // Not UTF-8.
      {"dog\xFF", std::nullopt},
      {"dog \xC3", std::nullopt},
      {"\xE2\x84iwi", std::nullopt},
  };
  for (const auto& [label, name] : cases) EXPECT_EQ(nameOf(label), name) << label;
}

/// Whether `text` is words of a to z with one of `separators` between two of them.
bool isWords(std::string_view text, std::string_view separators) {
  bool inWord = false;
  for (const char c : text) {
    const bool isLetter = c >= 'a' && c <= 'z';
    if (!isLetter && !(inWord && separators.contains(c))) return false;
    inWord = isLetter;
  }
  return inWord;
}

std::string withoutAccents(std::string_view text) {
  std::string plain(text);
  for (const auto letter : {"à"sv, "è"sv, "ò"sv}) {
    for (auto at = plain.find(letter); at != plain.npos; at = plain.find(letter)) {
      plain.replace(at, letter.size(), "a");
    }
  }
  return plain;
}

TEST(TagLocalization, TableIsWellFormed) {
  const auto table = TagLocalization::translations();
  EXPECT_EQ(table.size(), 981U);
  std::set<std::string_view> names;
  int phrases = 0;
  int same = 0;
  for (const auto& [label, name] : table) {
    EXPECT_TRUE(isWords(label, " ")) << label;
    EXPECT_TRUE(isWords(withoutAccents(name), " '")) << name;
    names.insert(name);
    phrases += label.contains(' ') ? 1 : 0;
    same += label == name ? 1 : 0;
  }
  EXPECT_EQ(names.size(), 938U);
  EXPECT_EQ(phrases, 22);
  EXPECT_EQ(same, 58);
}

TEST(TagLocalization, OnlySynonymsShareAName) {
  constexpr auto kSynonyms =
      "airplane plane, autumn fall, awe wonder, bravery courage, bug insect, clock watch, "
      "confidence trust, conveyance vehicle, cooking kitchen, crisp sharp, dawn sunrise, desert "
      "wilderness, dusk twilight, engine motor, fauna wildlife, fishing peach, foggy hazy, football"
      " soccer, fruit fruits, game play, grape grapes, heat warm, highlight light, holiday "
      "vacation, home house, indoor indoors, journey travel trip, land terrain, outdoor outdoors, "
      "performance show, photo photograph photography, plain simple, quiet silent, race running, "
      "rope string, shop store, skateboard skateboarding, ski skiing, snowboard snowboarding, "
      "vegetable vegetables, view vista, ";
  std::map<std::string_view, std::string> labelsOf;
  const auto table = TagLocalization::translations();
  for (const auto& [label, name] : table) labelsOf[name].append(label).append(" ");
  std::set<std::string> groups;
  for (const auto& [name, labels] : labelsOf) {
    const auto group = labels.substr(0, labels.size() - 1);
    if (table.find(group) == table.end()) groups.insert(group + ", ");
  }
  EXPECT_EQ(std::accumulate(groups.begin(), groups.end(), std::string()), kSynonyms);
}

TEST(TagLocalization, EveryLabelIsFoundInAnyCase) {
  const auto table = TagLocalization::translations();
  for (const auto& [label, name] : table) {
    // The table's own text, no copy.
    EXPECT_EQ(TagLocalization::italianName(label)->text().data(), name.data()) << label;
    std::string upper(label);
    std::ranges::transform(upper, upper.begin(), [](char c) { return c == ' ' ? c : c - 32; });
    EXPECT_EQ(nameOf(upper), name);
    EXPECT_EQ(table.find(label)->italianName, name);
    EXPECT_EQ(table.find(upper), table.end());
    EXPECT_EQ(nameOf(std::string(label) + 'x'), std::nullopt) << label;
  }
  EXPECT_EQ(table.find(""), table.end());
  EXPECT_EQ(table.find("zebra"), table.end());
}

TEST(TagLocalization, LongLabelsHaveNoName) {
  for (const auto* const piece : {"a", " ", "dog", "\u212A", "zebra ", "\xFF"}) {
    std::string label;
    while (label.size() < 10'000'000) label += piece;
    EXPECT_EQ(nameOf(label), std::nullopt) << piece;
  }
}

TEST(TagLocalization, ComposedNamesOutliveTheirLabel) {
  auto name = TagLocalization::italianName(std::string("sunglasses sneakers"));
  ASSERT_TRUE(name);
  const auto copy = *name;
  const auto moved = *std::move(name);
  EXPECT_EQ(copy.text(), "occhiali da sole scarpe da ginnastica");
  EXPECT_EQ(moved.text(), copy.text());
}

}  // namespace
}  // namespace orvane
