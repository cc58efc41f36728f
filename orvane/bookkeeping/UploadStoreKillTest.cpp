#include <gtest/gtest.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

namespace orvane {
namespace {

using orvane::testing::ChildMain;
using orvane::testing::ChildProcess;

constexpr std::int64_t kRecords = 100;
constexpr std::size_t kTextLength = 12'000;  // The whole file takes several writes.
constexpr std::int64_t kChangesPerRead = 4;

/// After change n the store holds, for each of the last `kRecords` numbers up to n, the record that
/// this change filed; so the whole map follows from n.
UploadRecord recordOfChange(std::int64_t number) {
  return {std::to_string(number % kRecords),
          "f",
          UploadStatus::uploading,
          number,
          0,
          std::string(kTextLength, static_cast<char>('a' + number % 26))};
}

/// The number of the last change in the store; nothing when the store is in no state that the
/// changes, made one after the other, lead through.
std::optional<std::int64_t> lastChange() {
  const auto records = UploadStore::shared().allRecords();
  std::int64_t last = 0;
  for (const auto& record : records) last = std::max(last, record.bytesUploaded);
  if (static_cast<std::int64_t>(records.size()) != std::min(last, kRecords)) return std::nullopt;
  for (const auto& record : records) {
    const auto number = record.bytesUploaded;
    const auto expected = recordOfChange(number);
    if (number <= last - kRecords || number < 1 || record.id() != expected.id() ||
        record.errorMessage != expected.errorMessage) {
      return std::nullopt;
    }
  }
  return last;
}

/// One line in one write, so that a kill cannot tear it.
void say(const std::string& word, std::int64_t number) {
  const auto line = word + ' ' + std::to_string(number) + '\n';
  if (write(STDOUT_FILENO, line.data(), line.size()) < 0) _exit(2);
}

/// Says what it finds, then changes the store until it is killed. "queue" comes before changes up
/// to that number are queued, "done" after a read that has seen them.
const ChildMain kBurst("upload-store-burst", [](const auto&) {
  const auto found = lastChange();
  say("found", found.value_or(-1));
  auto& store = UploadStore::shared();
  for (std::int64_t number = found.value_or(0);; number += kChangesPerRead) {
    say("queue", number + kChangesPerRead);
    for (int i = 1; i <= kChangesPerRead; ++i) store.upsert(recordOfChange(number + i));
    (void)store.completedCount();
    say("done", number + kChangesPerRead);
  }
  return 0;
});

struct Progress {
  std::int64_t found = -1;
  std::int64_t queued = 0;
  std::int64_t done = 0;

  void note(const std::string& line) {
    const auto space = line.find(' ');
    const auto number = std::stoll(line.substr(space));
    const auto word = line.substr(0, space);
    if (word == "found") found = number;
    if (word == "queue") queued = number;
    if (word == "done") done = number;
  }
};

struct Burst {
  ChildProcess child = ChildProcess::run("upload-store-burst");
  Progress progress;

  bool noteLine() {
    const auto line = child.readLine();
    if (line) progress.note(*line);
    return line.has_value();
  }

  /// Waits for `lines` lines, and for `delay` more, then kills the child.
  Progress kill(int lines, std::chrono::nanoseconds delay) {
    for (int i = 0; i < lines; ++i) EXPECT_TRUE(noteLine());
    std::this_thread::sleep_for(delay);
    child.kill(SIGKILL);
    while (noteLine()) {
    }
    EXPECT_EQ(child.wait(), -SIGKILL);
    return progress;
  }
};

/// How long a child takes from one "done" to the next.
std::chrono::nanoseconds timeOfARound() {
  constexpr int kRounds = 20;
  Burst burst;
  EXPECT_TRUE(burst.noteLine());
  const auto start = std::chrono::steady_clock::now();
  for (int line = 0; line < 2 * kRounds; ++line) EXPECT_TRUE(burst.noteLine());
  return (std::chrono::steady_clock::now() - start) / kRounds;
}

TEST(UploadStoreKillTest, ARestartFindsAWholeState) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> someLines(1, 5);
  std::uniform_int_distribution<std::int64_t> someTime(0, timeOfARound().count());
  std::filesystem::remove_all(orvane::testing::testDirectory() / "data");
  int between = 0;
  Progress before{.found = 0};
  for (int kill = 0; kill <= 200; ++kill) {
    const auto lines = someLines(random);
    const auto now = Burst().kill(lines, std::chrono::nanoseconds(someTime(random)));
    ASSERT_GE(now.found, before.done) << "after kill " << kill;
    ASSERT_LE(now.found, before.queued) << "after kill " << kill;
    if (now.found > before.done && now.found < before.queued) ++between;
    before = now;
    before.done = std::max(now.done, now.found);
    before.queued = std::max(now.queued, now.found);
  }
  EXPECT_GT(between, 20) << "too few kills landed in the middle of the changes";
  const auto folder =
      orvane::testing::testDirectory() / "data/org.orvane.engine/Application Support";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    EXPECT_EQ(entry.path().filename().string().find("undecodable"), std::string::npos);
  }
}

}  // namespace
}  // namespace orvane
