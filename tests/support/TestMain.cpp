#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>

// Every test runs in a process of its own, in a new folder that holds all it writes, in a time zone
// that is not UTC; loopback traffic never goes through a proxy of the machine.
int main(int argc, char** argv) {
  if (const auto status = orvane::testing::runAsChild(argc, argv)) return *status;
  const orvane::testing::TemporaryDirectory directory;
  setenv("ORVANE_TEST_DIRECTORY", directory.path().c_str(), 1);
  setenv("HOME", directory.path().c_str(), 1);
  setenv("XDG_DATA_HOME", (directory / "data").c_str(), 1);
  setenv("TZ", "Test-5:45", 1);
  setenv("no_proxy", "127.0.0.1,localhost,::1", 1);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
