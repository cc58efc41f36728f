#include <orvane/bookkeeping/Date.h>

#include "support/Test.h"

namespace orvane {
namespace {

using std::chrono::sys_days;

TEST(DateTest, CountsFromItsReferenceWithinTheClock) {
  EXPECT_EQ(Date::from(sys_days(1970y / 1 / 1)), Date{-978'307'200});
  EXPECT_EQ(Date::from(sys_days(2024y / 2 / 29) + 12h + 500ms), Date{730'900'800.5});
  EXPECT_EQ(Date{-1'293'926'400.25}.timePoint(), sys_days(1960y / 1 / 1) - 250ms);
  for (const sys_days early : {1677y / 9 / 22, 1690y / 1 / 1, 1708y / 1 / 1}) {
    EXPECT_EQ(Date::from(early).timePoint(), early);
  }
  for (const auto end : {Date::TimePoint::min(), Date::TimePoint::max()}) {
    const auto near = Date::from(end).timePoint();
    EXPECT_LE(near < end ? end - near : near - end, 2us);
  }
  for (const double far : {1e300, HUGE_VAL, std::nan(""), -1e300, -HUGE_VAL}) {
    EXPECT_EQ(Date{far}.timePoint(), far < 0 ? Date::TimePoint::min() : Date::TimePoint::max());
  }
}

}  // namespace
}  // namespace orvane
