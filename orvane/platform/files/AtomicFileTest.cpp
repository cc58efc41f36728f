#include <orvane/platform/files/AtomicFile.h>

#include "support/ChildProcess.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <thread>
#include <vector>

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;
using testing::readFile;

Result<void> replace(const fs::path& target, std::string_view content) {
  auto file = AtomicFile::create(target);
  if (!file) return std::unexpected(file.error());
  if (auto added = file->append(bytesOf(content)); !added) return added;
  return file->commit();
}

std::size_t filesIn(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

TEST(AtomicFile, ReplacesTheWholeContent) {
  const auto target = testing::testDirectory() / "f";
  const std::string large(5'000'000, 'l');
  for (const auto& content : {large, std::string("small"), std::string()}) {
    ASSERT_TRUE(replace(target, content));
    EXPECT_TRUE(readFile(target) == content);
    struct stat status{};
    ASSERT_EQ(stat(target.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
  }
  EXPECT_EQ(filesIn(testing::testDirectory()), 1U);
}

TEST(AtomicFile, KeepsTheOldContentUntilCommit) {
  const auto target = testing::testDirectory() / "f";
  ASSERT_TRUE(replace(target, "old"));
  {
    auto file = AtomicFile::create(target).value();
    ASSERT_TRUE(file.append(bytesOf(std::string(3'000'000, 'n'))));
    EXPECT_EQ(readFile(target), "old");
  }
  EXPECT_EQ(readFile(target), "old");
  EXPECT_EQ(filesIn(testing::testDirectory()), 1U);
}

TEST(AtomicFile, FailsWithAPosixErrorWhereItCannotWrite) {
  const auto folder = testing::testDirectory();
  testing::writeFile(folder / "plain", "x");
  fs::create_directories(folder / "target" / "full");
  for (const auto& target : {folder / "plain" / "f", folder / "missing" / "f", folder / "target"}) {
    const auto result = replace(target, "new");
    ASSERT_FALSE(result) << target;
    EXPECT_EQ(result.error().domain(), Error::kPosix);
  }
  EXPECT_EQ(AtomicFile::create("/dev/full/f").error().code(), ENOTDIR);
}

TEST(AtomicFile, WritersOfOneTargetTakeTurns) {
  const auto target = testing::testDirectory() / "f";
  std::vector<std::thread> writers;
  for (char letter = 'a'; letter < 'a' + 8; ++letter) {
    writers.emplace_back([&, letter] {
      for (int i = 0; i < 20; ++i) EXPECT_TRUE(replace(target, std::string(20'000, letter)));
    });
  }
  for (int i = 0; i < 200; ++i) {
    if (!fs::exists(target)) continue;
    const auto content = readFile(target);
    ASSERT_EQ(content, std::string(20'000, content.at(0)));
  }
  for (auto& writer : writers) writer.join();
  EXPECT_EQ(filesIn(testing::testDirectory()), 1U);
}

const testing::ChildMain kHalfWriter("halfWriter", [](const auto& arguments) {
  auto file = AtomicFile::create(arguments.at(0)).value();
  if (!file.append(bytesOf(std::string(3'000'000, 'h')))) return 1;
  return raise(SIGKILL);
});

TEST(AtomicFile, AKilledWriterLeavesNothingThatGrows) {
  const auto target = testing::testDirectory() / "f";
  ASSERT_TRUE(replace(target, "old"));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(testing::ChildProcess::run("halfWriter", {target.string()}).wait(), -SIGKILL);
    EXPECT_EQ(readFile(target), "old");
    EXPECT_LE(filesIn(testing::testDirectory()), 2U);
  }
  ASSERT_TRUE(replace(target, "new"));
  EXPECT_EQ(readFile(target), "new");
  EXPECT_EQ(filesIn(testing::testDirectory()), 1U);
}

const testing::ChildMain kWriter("writer", [](const auto& arguments) {
  return replace(arguments.at(0), "new") ? 0 : 1;
});

TEST(AtomicFile, ATemporaryFileOfAnotherUserIsMadeAnew) {
  if (!testing::OtherUser::isPossible()) GTEST_SKIP() << "needs root";
  const testing::OtherUser user;
  const auto target = testing::testDirectory() / "f";
  for (const auto mode : {fs::perms::none, fs::perms(0666)}) {
    testing::writeFile(testing::testDirectory() / ".f.tmp", "of root");
    fs::permissions(testing::testDirectory() / ".f.tmp", mode);
    EXPECT_EQ(testing::ChildProcess::run("writer", {target.string()}).wait(), 0);
    EXPECT_EQ(readFile(target), "new");
    struct stat status{};
    ASSERT_EQ(stat(target.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, testing::OtherUser::kId);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(filesIn(testing::testDirectory()), 1U);
  }
}

/// Gives the error of its commit, which comes when it goes on.
const testing::ChildMain kStopped("stoppedWriter", [](const auto& arguments) {
  auto file = AtomicFile::create(arguments.at(0)).value();
  static_cast<void>(file.append(bytesOf("late")));
  const bool forks = arguments.at(1) == "forks";
  const pid_t child = forks ? fork() : 0;
  if (forks && child == 0) return pause();
  std::cout << child << std::endl;
  raise(forks ? SIGKILL : SIGSTOP);
  return static_cast<int>(file.commit().error().code());
});

TEST(AtomicFile, AWriterThatStopsOrLeavesItsLockToAChildHoldsUpNobodyForLong) {
  const auto target = testing::testDirectory() / "f";
  std::vector<std::jthread> others;
  for (const std::string how : {"stops", "forks"}) {
    others.emplace_back([&target, how] {
      const auto file = target.string() + how;
      auto writer = testing::ChildProcess::run("stoppedWriter", {file, how});
      const pid_t child = std::stoi(writer.readLine().value());
      EXPECT_TRUE(replace(file, "new"));
      if (child != 0) kill(child, SIGKILL);
      writer.kill(SIGCONT);
      EXPECT_EQ(writer.wait(), how == "forks" ? -SIGKILL : ESTALE);
      EXPECT_EQ(readFile(file), "new");
    });
  }
  others.clear();
  EXPECT_EQ(filesIn(testing::testDirectory()), 2U);
}

}  // namespace
}  // namespace orvane::platform
