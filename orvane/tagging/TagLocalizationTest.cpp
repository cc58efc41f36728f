#include <orvane/tagging/TagLocalization.h>

#include "support/Test.h"

namespace orvane {
namespace {

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
      {"Tv", "televisore"},
      {"peach", "pesca"},
      {"outdoor", "all'aperto"},
      {"adulthood", "età adulta"},
      // Phrases before words.
      {"ice cream", "gelato"},
      {"Ice Cream", "gelato"},
      {"musical_instrument", std::nullopt},
      // Word by word, in the order of the words.
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
      // Letters beyond ASCII whose lower-case forms begin with, or are, ASCII.
      {"\u212Aiwi", "kiwi"},
      {"\u212Aaya\u212A", "kayak"},
      {"S\u212AY dog", "cielo cane"},
      {"k\u0130wi", std::nullopt},
      {"\uFF24og", std::nullopt},
      // Not UTF-8.
      {"dog\xFF", std::nullopt},
      {"\xE2\x84iwi", std::nullopt},
  };
  for (const auto& [label, name] : cases) EXPECT_EQ(nameOf(label), name) << label;
}

TEST(TagLocalization, TheTableIsWhole) {
  const auto table = TagLocalization::translations();
  std::set<std::string_view> names;
  int phrases = 0;
  int same = 0;
  for (const auto& [label, name] : table) {
    EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz 'àèò"), name.npos) << name;
    names.insert(name);
    phrases += label.contains(' ') ? 1 : 0;
    same += label == name ? 1 : 0;
  }
  EXPECT_EQ(table.size(), 981U);
  EXPECT_EQ(names.size(), 938U);
  EXPECT_EQ(phrases, 22);
  EXPECT_EQ(same, 58);
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
  const auto name = TagLocalization::italianName(std::string("sunglasses sneakers"));
  const auto copy = *name;
  EXPECT_EQ(copy.text(), "occhiali da sole scarpe da ginnastica");
}

}  // namespace
}  // namespace orvane
