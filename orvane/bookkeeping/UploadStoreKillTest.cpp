#include <orvane/bookkeeping/UploadStore.h>

#include "support/Test.h"

namespace orvane {
namespace {

constexpr std::int64_t kRecords = 100;
constexpr std::int64_t kChangesPerRead = 4;

/// After change n the store holds, for each of the last `kRecords` numbers up to n, the record that
/// this change filed; so the whole map follows from n. The file takes several writes.
UploadRecord recordOfChange(std::int64_t number) {
  const auto letter = static_cast<char>('a' + number % 26);
  return {std::to_string(number % kRecords), "f", UploadStatus::uploading, number, 0,
          std::string(12'000, letter)};
}

/// The number of the last change in the store; -1 when the store is in no state that the changes,
/// made one after the other, lead through.
std::int64_t lastChange() {
  const auto records = UploadStore::shared().allRecords();
  std::int64_t last = 0;
  for (const auto& record : records) last = std::max(last, record.bytesUploaded);
  bool whole = std::ssize(records) == std::min(last, kRecords);
  for (const auto& record : records) {
    const auto expected = recordOfChange(record.bytesUploaded);
    whole = whole && record.bytesUploaded > std::max<std::int64_t>(0, last - kRecords) &&
            record.id() == expected.id() && record.errorMessage == expected.errorMessage;
  }
  return whole ? last : -1;
}

/// Changes the store until it is killed. Says the number of the last change whenever it has seen
/// that one in the store, each in one write, so that a kill cannot tear it.
const ChildMain kBurst("upload-store-burst", [](const auto&) {
  auto& store = UploadStore::shared();
  for (std::int64_t number = lastChange();; number += kChangesPerRead) {
    const auto line = std::to_string(number) + '\n';
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0) return 2;
    for (int i = 1; i <= kChangesPerRead; ++i) store.upsert(recordOfChange(number + i));
    (void)store.completedCount();
  }
});

TEST(UploadStoreKillTest, ARestartFindsAWholeState) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::int64_t seen = 0;
  int between = 0;
  for (int kill = 0; kill <= 100; ++kill) {
    auto child = ChildProcess::run("upload-store-burst");
    const auto found = std::stoll(child.readLine().value());
    ASSERT_GE(found, seen) << "after kill " << kill;
    ASSERT_LE(found, seen + kChangesPerRead) << "after kill " << kill;
    if (found > seen && found < seen + kChangesPerRead) ++between;

    // Any moment of a round that takes as long as the one before.
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(child.readLine());
    const auto round = std::chrono::steady_clock::now() - start;
    std::this_thread::sleep_for(round * std::uniform_real_distribution<>(0, 1)(random));
    child.kill(SIGKILL);
    seen = found + kChangesPerRead;
    while (const auto line = child.readLine()) seen = std::stoll(*line);
    ASSERT_EQ(child.wait(), -SIGKILL);
  }
  EXPECT_GT(between, 10) << "too few kills landed in the middle of the changes";
}

}  // namespace
}  // namespace orvane
