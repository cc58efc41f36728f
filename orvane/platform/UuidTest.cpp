#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/platform/Uuid.h>

#include <set>
#include <string>

namespace orvane::platform {
namespace {

TEST(Uuid, IsRandomOfVersion4InUpperCase) {
  const auto hasForm = ::testing::MatchesRegex(
      "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  std::set<char> lastDigits;
  for (int i = 0; i < 1000; ++i) {
    const auto uuid = randomUuid();
    EXPECT_THAT(uuid, hasForm);
    EXPECT_TRUE(seen.insert(uuid).second) << uuid;
    lastDigits.insert(uuid.back());
  }
  EXPECT_EQ(lastDigits.size(), 16U);
}

}  // namespace
}  // namespace orvane::platform
