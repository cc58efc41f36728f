#include <orvane/platform/files/FolderLock.h>

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <thread>
#include <vector>

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::minutes;

const fs::path& folder() {
  static const fs::path path = testing::testDirectory() / "new" / "folder";
  return path;
}

TEST(FolderLock, GivesOneTurnAtATime) {
  std::atomic<int> holders = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&holders] {
      for (int turn = 0; turn < 25; ++turn) {
        const FolderLock lock(folder(), minutes(5));
        EXPECT_TRUE(lock.isHeld());
        EXPECT_EQ(++holders, 1);
        std::this_thread::yield();
        --holders;
      }
    });
  }
}

TEST(FolderLock, IsGivenUpWhateverAForkedChildStillHas) {
  pid_t child = -1;
  {
    const FolderLock lock(folder(), milliseconds(0));
    ASSERT_TRUE(lock.isHeld());
    EXPECT_TRUE(FolderLock(folder(), milliseconds(5)).isHeldByAnother());
    child = fork();
    if (child == 0) {
      for (;;) pause();
    }
  }
  EXPECT_TRUE(FolderLock(folder(), milliseconds(0)).isHeld());
  kill(child, SIGKILL);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST(FolderLock, LetsNobodyElseIn) {
  umask(0);
  EXPECT_TRUE(FolderLock(folder(), milliseconds(0)).isHeld());
  const auto modeOf = [](const fs::path& path) { return fs::status(path).permissions(); };
  EXPECT_EQ(modeOf(folder().parent_path()), fs::perms::owner_all);
  EXPECT_EQ(modeOf(folder()), fs::perms::owner_all);
  EXPECT_EQ(modeOf(folder() / ".lock"), fs::perms::owner_read | fs::perms::owner_write);
}

TEST(FolderLock, DoesWithoutAFolder) {
  testing::writeFile(folder(), "a file in its place");
  const FolderLock lock(folder(), minutes(5));
  EXPECT_FALSE(lock.isHeld() || lock.isHeldByAnother());
}

}  // namespace
}  // namespace orvane::platform
