#include <orvane/bookkeeping/AppSettings.h>

#include "support/Test.h"

namespace orvane {
namespace {

const ChildMain kShow("show-settings",
                      [](auto&) { return AppSettings::isThumbnailGenerationEnabled() ? 1 : 0; });

TEST(AppSettings, WhatIsSetHereIsReadEverywhere) {
  EXPECT_FALSE(AppSettings::isThumbnailGenerationEnabled());
  for (const bool enabled : {true, false, true}) {
    AppSettings::setThumbnailGenerationEnabled(enabled);
    EXPECT_EQ(AppSettings::isThumbnailGenerationEnabled(), enabled);
    EXPECT_EQ(ChildProcess::run("show-settings").wait(), enabled ? 1 : 0);
  }
}

}  // namespace
}  // namespace orvane
