#include <orvane/bookkeeping/AppSettings.h>

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

const testing::ChildMain kShow("show-settings", [](const auto&) {
  return AppSettings::isThumbnailGenerationEnabled() ? 1 : 0;
});

TEST(AppSettings, WhatIsSetHereIsReadEverywhere) {
  const auto elsewhere = [] { return testing::ChildProcess::run("show-settings").wait() == 1; };
  EXPECT_FALSE(AppSettings::isThumbnailGenerationEnabled());
  for (const bool enabled : {true, false, true}) {
    AppSettings::setThumbnailGenerationEnabled(enabled);
    EXPECT_EQ(AppSettings::isThumbnailGenerationEnabled(), enabled);
    EXPECT_EQ(elsewhere(), enabled);
  }
}

}  // namespace
}  // namespace orvane
