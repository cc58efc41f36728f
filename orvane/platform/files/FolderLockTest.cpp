#include <orvane/platform/files/FolderLock.h>

#include "support/Test.h"

#include <sys/wait.h>

namespace orvane::platform {
namespace {

const fs::path& folder() {
  static const fs::path path = testDirectory() / "new" / "folder";
  return path;
}

TEST(FolderLock, GivesOneTurnAtATime) {
  std::atomic<int> holders = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&holders] {
      for (int turn = 0; turn < 25; ++turn) {
        const FolderLock lock(folder(), 5min);
        EXPECT_TRUE(lock.isHeld());
        EXPECT_EQ(++holders, 1);
        std::this_thread::yield();
        --holders;
      }
    });
  }
}

TEST(FolderLock, IsGivenUpWhateverAForkedChildStillHas) {
  umask(0);
  pid_t child = -1;
  {
    const FolderLock lock(folder(), 0ms);
    ASSERT_TRUE(lock.isHeld());
    EXPECT_TRUE(FolderLock(folder(), 5ms).isHeldByAnother());
    child = fork();
    while (child == 0) pause();
  }
  EXPECT_TRUE(FolderLock(folder(), 0ms).isHeld());
  kill(child, SIGKILL);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);

  const auto modeOf = [](const fs::path& path) { return fs::status(path).permissions(); };
  EXPECT_EQ(modeOf(folder().parent_path()), fs::perms::owner_all);
  EXPECT_EQ(modeOf(folder()), fs::perms::owner_all);
  EXPECT_EQ(modeOf(folder() / ".lock"), fs::perms::owner_read | fs::perms::owner_write);
  const FolderLock none(folder() / ".lock", 5min);
  EXPECT_FALSE(none.isHeld() || none.isHeldByAnother()) << "there is a file in the folder's place";
}

}  // namespace
}  // namespace orvane::platform
