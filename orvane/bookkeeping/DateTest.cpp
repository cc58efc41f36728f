#include <gtest/gtest.h>
#include <orvane/bookkeeping/Date.h>

#include <chrono>
#include <limits>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;

TEST(DateTest, CountsFromItsReference) {
  EXPECT_EQ(Date::from(sys_days(2001y / 1 / 1)), Date{0});
  EXPECT_EQ(Date::from(sys_days(1970y / 1 / 1)), Date{-978'307'200});
  EXPECT_EQ(Date::from(sys_days(2024y / 2 / 29) + 12h + 500ms), Date{730'900'800.5});
  EXPECT_EQ(Date::from(sys_days(1960y / 1 / 1) - 250ms), Date{-1'293'926'400.25});
  EXPECT_EQ(Date{730'900'800.5}.timePoint(), sys_days(2024y / 2 / 29) + 12h + 500ms);
  EXPECT_EQ(Date{-1'293'926'400.25}.timePoint(), sys_days(1960y / 1 / 1) - 250ms);
}

TEST(DateTest, StaysWithinTheClock) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double late : {1e300, infinity, infinity - infinity}) {
    EXPECT_EQ(Date{late}.timePoint(), Date::TimePoint::max()) << late;
  }
  for (const double early : {-1e300, -infinity}) {
    EXPECT_EQ(Date{early}.timePoint(), Date::TimePoint::min()) << early;
  }
  EXPECT_LT(Date::from(Date::TimePoint::min()), Date::from(Date::TimePoint::max()));
}

TEST(DateTest, NowIsNow) {
  const auto before = std::chrono::system_clock::now();
  const auto now = Date::now().timePoint();
  EXPECT_LE(before - 1ms, now);
  EXPECT_LE(now, std::chrono::system_clock::now() + 1ms);
}

}  // namespace
}  // namespace orvane
