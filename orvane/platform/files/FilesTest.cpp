#include <orvane/platform/files/AtomicFile.h>
#include <orvane/platform/files/FolderLock.h>

#include "support/OtherUser.h"
#include "support/SystemCalls.h"
#include "support/Test.h"

namespace orvane::platform {
namespace {

fs::path target() { return testDirectory() / "f"; }
fs::path pipePath() { return testDirectory() / "pipe"; }

Result<void> replace(const fs::path& path, std::string_view content) {
  auto file = AtomicFile::create(path);
  if (!file) return std::unexpected(file.error());
  if (auto added = file->append(bytesOf(content)); !added) return added;
  return file->commit();
}

/// That the target is a private file of the user with that content, and nothing else is left.
void expectOnly(std::string_view content, uid_t user = geteuid()) {
  struct stat status{};
  ASSERT_EQ(stat(target().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  EXPECT_EQ(status.st_uid, user);
  EXPECT_TRUE(readFile(target()) == content);
  EXPECT_EQ(std::distance(fs::directory_iterator(testDirectory()), {}), 1);
}

TEST(AtomicFile, ReplacesTheWholeContentOnceCommitted) {
  umask(0);
  const std::string large(5'000'000, 'l');
  for (const auto& content : {large, "small"s, ""s}) {
    (void)testing::takeFileCalls();
    ASSERT_TRUE(replace(target(), content));
    EXPECT_THAT(testing::takeFileCalls(),
                ElementsAre(content.empty() ? "sync .f.tmp empty" : "sync .f.tmp",
                            "rename .f.tmp f", "sync " + testDirectory().filename().string()));
    ASSERT_TRUE(AtomicFile::create(target()).value().append(bytesOf(large)));
    expectOnly(content);
  }
}

TEST(AtomicFile, FailsWithAPosixErrorWhereItCannotWrite) {
  fs::create_directories(target() / "full");
  EXPECT_EQ(replace(target(), "new").error().domain(), Error::kPosix);
  EXPECT_EQ(replace(target(), "new").error().code(), EISDIR);
  EXPECT_EQ(AtomicFile::create(testDirectory() / "missing/f").error().code(), ENOENT);

  fs::remove_all(target());
  ASSERT_TRUE(replace(target(), "old"));
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{.rlim_cur = 1000, .rlim_max = 1000};  // As a full disk would.
  setrlimit(RLIMIT_FSIZE, &small);
  for (const std::size_t size : {2'000U, 2'000'000U}) {
    EXPECT_EQ(replace(target(), std::string(size, 'n')).error().code(), EFBIG);
    expectOnly("old");
  }
}

/// Has begun to write when it says so; then goes on, waits for somebody to open the pipe, or is
/// killed, as it is told.
const ChildMain kWriter("writer", [](const auto& arguments) {
  auto file = AtomicFile::create(target()).value();
  if (!file.append(bytesOf(std::string(3'000'000, 'h')))) return 1;
  std::cout << std::endl;
  if (arguments.at(0) == "is killed") raise(SIGKILL);
  if (arguments.at(0) == "waits") std::ifstream pipe(pipePath());
  return file.commit() ? 0 : 1;
});

TEST(AtomicFile, AWriterThatStopsOrIsKilledHoldsUpNobodyAndLeavesNothing) {
  ASSERT_TRUE(replace(target(), "old"));
  ASSERT_EQ(mkfifo(pipePath().c_str(), 0600), 0);
  std::vector<ChildProcess> waiting;
  for (int i = 0; i < 2; ++i) {
    waiting.push_back(ChildProcess::run("writer", {"waits"}));
    ASSERT_TRUE(waiting.back().readLine());
  }
  EXPECT_EQ(readFile(target()), "old");
  EXPECT_TRUE(replace(target(), "new"));
  EXPECT_EQ(readFile(target()), "new");
  EXPECT_EQ(ChildProcess::run("writer", {"is killed"}).wait(), -SIGKILL);
  const std::ofstream pipe(pipePath());
  for (auto& writer : waiting) EXPECT_EQ(writer.wait(), 0);
  fs::remove(pipePath());
  EXPECT_EQ(readFile(target()), std::string(3'000'000, 'h'));
  EXPECT_TRUE(replace(target(), "last"));
  expectOnly("last");
}

TEST(AtomicFile, ATemporaryFileOfAnotherUserIsMadeAnew) {
  if (!testing::OtherUser::isPossible()) GTEST_SKIP() << "needs root";
  const testing::OtherUser user;
  for (const auto mode : {fs::perms::none, fs::perms(0666)}) {
    writeFile(testDirectory() / ".f.tmp", "of root");
    fs::permissions(testDirectory() / ".f.tmp", mode);
    EXPECT_EQ(ChildProcess::run("writer", {"goes on"}).wait(), 0);
    expectOnly(std::string(3'000'000, 'h'), testing::OtherUser::kId);
  }
}

TEST(FolderLock, IsHeldByOneAtATimeWhateverAForkedChildStillHas) {
  umask(0);
  const auto folder = testDirectory() / "new" / "folder";
  pid_t child = -1;
  {
    const FolderLock lock(folder, 0ms);
    ASSERT_TRUE(lock.isHeld());
    EXPECT_TRUE(FolderLock(folder, 5ms).isHeldByAnother());
    child = fork();
    while (child == 0) pause();
  }
  EXPECT_TRUE(FolderLock(folder, 0ms).isHeld());
  kill(child, SIGKILL);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  std::atomic<int> holders = 0;
  std::vector<std::jthread> threads(4);
  for (auto& thread : threads) {
    thread = std::jthread([&] {
      for (int turn = 0; turn < 25; ++turn) {
        const FolderLock lock(folder, 5min);
        EXPECT_TRUE(lock.isHeld() && ++holders == 1);
        --holders;
      }
    });
  }
  threads.clear();
  for (const auto& path : {folder.parent_path(), folder, folder / ".lock"}) {
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(path == folder / ".lock" ? 0600 : 0700));
  }
  const FolderLock none(folder / ".lock", 5min);
  EXPECT_FALSE(none.isHeld() || none.isHeldByAnother()) << "there is a file in the folder's place";
}

}  // namespace
}  // namespace orvane::platform
