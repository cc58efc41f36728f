#include <orvane/platform/base/Uuid.h>

#include <orvane/platform/base/PercentEncoding.h>

#include "support/Test.h"

namespace orvane::platform {
namespace {

TEST(Uuid, IsRandomOfVersion4AndReadInUpperCase) {
  const auto hasForm =
      MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    EXPECT_THAT(*seen.insert(randomUuid()).first, hasForm);
  }
  EXPECT_EQ(seen.size(), 1000U);

  EXPECT_EQ(uuidFrom("0123abcd-EF01-2345-6789-abcdefABCDEF"),
            "0123ABCD-EF01-2345-6789-ABCDEFABCDEF");
  for (const auto* text :
       {"", "0123abcd-EF01-2345-6789-abcdefABCDE", "0123abcd-EF01-2345-6789-abcdefABCDEF0",
        "0123abcd-EF01-2345-6789-abcdefABCDEg", "0123abcdE-F01-2345-6789-abcdefABCDEF",
        "0123abcd0EF01-2345-6789-abcdefABCDEF", "0123abcd-EF01-2345-6789-abcdefABCD--"}) {
    EXPECT_EQ(uuidFrom(text), std::nullopt) << text;
  }
}

TEST(PercentEncoding, KeepsAPercentSignThatBeginsNoTriple) {
  EXPECT_EQ(percentDecode("%4%41%4g%a%c3%A8%"), "%4A%4g%a\u00e8%");
  EXPECT_EQ(percentDecodeText("%41%4"), std::nullopt);
  EXPECT_EQ(percentDecodeText("%c3"), std::nullopt);
}

}  // namespace
}  // namespace orvane::platform
