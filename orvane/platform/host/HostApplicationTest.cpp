#include <orvane/platform/host/HostApplication.h>

#include "support/Test.h"

namespace orvane {
namespace {

TEST(HostApplication, FindsItsFoldersInTheEnvironment) {
  setenv("XDG_DATA_HOME", "/data", 1);
  EXPECT_EQ(HostApplication::applicationSupportDirectory(),
            "/data/org.orvane.engine/Application Support");
  EXPECT_EQ(HostApplication::secretsDirectory(), "/data/org.orvane.engine/Secrets");
}

TEST(HostApplication, FallsBackToTheHomeFolder) {
  setenv("XDG_DATA_HOME", "not/absolute", 1);
  setenv("HOME", "/home/me", 1);
  EXPECT_EQ(HostApplication::documentsDirectory(),
            "/home/me/.local/share/org.orvane.engine/Documents");
}

TEST(HostApplication, HasNoFolderWithoutAHome) {
  unsetenv("XDG_DATA_HOME");
  unsetenv("HOME");
  EXPECT_EQ(HostApplication::applicationSupportDirectory(), std::nullopt);
}

TEST(HostApplication, IsConfiguredOnceBeforeUse) {
  for (const std::string identifier : {"", ".hidden", "a/b", "a b", "\u00e8"}) {
    const auto refused = HostApplication::configure({.identifier = identifier});
    EXPECT_EQ(refused.error().code(), 2) << identifier;
  }
  EXPECT_EQ(HostApplication::configure({.dataDirectory = "relative"}).error().code(), 3);
  EXPECT_EQ(HostApplication::configure({.helperFolder = "relative"}).error().code(), 5);
  ASSERT_TRUE(HostApplication::configure({.identifier = "org.example.app", .dataDirectory = "/d"}));
  EXPECT_EQ(HostApplication::identifier(), "org.example.app");
  EXPECT_EQ(HostApplication::documentsDirectory(), "/d/Documents");
  EXPECT_EQ(HostApplication::configure({}).error().code(), 1);
}

TEST(HostApplication, RefusesConfigurationAfterUse) {
  EXPECT_EQ(HostApplication::identifier(), "org.orvane.engine");
  EXPECT_EQ(HostApplication::configure({}).error().code(), 1);
}

}  // namespace
}  // namespace orvane
