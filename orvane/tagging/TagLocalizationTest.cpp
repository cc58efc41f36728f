#include <orvane/tagging/TagLocalization.h>

#include "support/Test.h"

namespace orvane {
namespace {

const auto& nameOf = TagLocalization::italianName;

TEST(TagLocalization, NamesLabels) {
  const std::pair<std::string_view, std::string_view> named[] = {
      {"dog", "cane"},
      {"Tv", "televisore"},
      {"peach", "pesca"},
      {"fishing", "pesca"},
      {"adulthood", "età adulta"},
      {"Ice Cream", "gelato"},  // Phrases before words.
      {"musical instrument", "strumento musicale"},
      {"SNOW  Mountain", "neve montagna"},
      {" snow mountain ", "neve montagna"},
      {"dog dog", "cane cane"},
      // Letters beyond ASCII whose lower-case forms are ASCII.
      {"\u212Aaya\u212A", "kayak"},
      {"S\u212AY dog", "cielo cane"}};
  for (const auto& [label, name] : named) EXPECT_EQ(nameOf(label), name) << label;
  for (const auto label :
       {"ice  cream"sv, "ice cream dog"sv, "mountain zebra"sv, "zebra"sv, " dog "sv, ""sv, "   "sv,
        "s"sv, "musical_instrument"sv, "dog\tcat"sv, "dog\u00A0cat"sv, "ice\0cream"sv, "\x04og"sv,
        "k\u0130wi"sv, "\uFF24og"sv, "dog\xFF"sv, "\xE2\x84iwi"sv}) {
    EXPECT_EQ(nameOf(label), std::nullopt) << label;
  }
  for (const auto* const piece : {" ", "dog", "\u212A"}) {
    std::string label;
    while (label.size() < 10'000'000) label += piece;
    EXPECT_EQ(nameOf(label), std::nullopt) << piece;
  }
}

TEST(TagLocalization, TheTableIsWholeAndEveryLabelIsFoundInAnyCase) {
  const auto table = TagLocalization::translations();
  std::set<std::string_view> names;
  for (const auto& [label, name] : table) {
    EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz 'àèò"), name.npos) << name;
    names.insert(name);
    std::string upper(label);
    std::ranges::transform(upper, upper.begin(), [](char c) { return c == ' ' ? c : c - 32; });
    EXPECT_EQ(nameOf(upper), name);
    EXPECT_EQ(table.find(label)->italianName, name);
    EXPECT_EQ(table.find(upper), table.end());
    EXPECT_EQ(nameOf(std::string(label) + 'x'), std::nullopt) << label;
  }
  EXPECT_EQ(table.size(), 981U);
  EXPECT_EQ(names.size(), 938U);
}

}  // namespace
}  // namespace orvane
