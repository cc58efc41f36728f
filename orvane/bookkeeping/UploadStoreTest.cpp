#include <orvane/bookkeeping/UploadStore.h>

#include "support/Test.h"

#include <numeric>
#include <tuple>

namespace orvane {
namespace {

using enum UploadStatus;

constexpr const char* kGood =
    R"({"A":{"id":"A","filename":"a","status":"failed","bytesUploaded":1,"totalBytes":2,"x":[1]},)"
    R"("K":{"id":"other","filename":"k","status":"retrying","bytesUploaded":1,"totalBytes":2}})";

fs::path folder() { return testDirectory() / "data/org.orvane.engine/Application Support"; }
fs::path file() { return folder() / "upload_records_v1.json"; }
fs::path aside() { return folder() / "upload_records_v1.json.undecodable"; }

UploadStore& store() { return UploadStore::shared(); }

UploadRecord make(const std::string& id, UploadStatus status, std::int64_t retries = 2) {
  return {id, "media/" + id, status, 5, 10, "late", Date{1.5}, true, retries, "e", {"mare"}, 3};
}

/// One record of every status, filed under its name, and more that have failed.
std::vector<UploadRecord> someOfEach() {
  std::vector<UploadRecord> records;
  for (const auto s : {pending, uploading, completed, failed, retrying, excluded, remoteAlias}) {
    records.push_back(make(std::string(uploadStatusText(s)), s));
  }
  for (const int n : {-1, 3}) records.push_back(make(std::to_string(n), failed, n));
  return records;
}

/// The records as JSON, one a line, in an order of their own.
std::string linesOf(const std::vector<UploadRecord>& records) {
  std::multiset<std::string> sorted;
  for (const auto& record : records) sorted.insert(record.encodeJson().value() + '\n');
  std::string lines;
  for (const auto& line : sorted) lines += line;
  return lines;
}

std::string contents() { return linesOf(store().allRecords()); }

/// Says what a store in a new process holds, then queues one change for each argument and returns.
const ChildMain kOther("upload-store", [](const std::vector<std::string>& ids) {
  std::cout << contents();
  for (const auto& id : ids) store().upsert(make(id, pending));
  return 0;
});

std::string contentsAfterRestart(const std::vector<std::string>& changes = {}) {
  return outputOfChild("upload-store", changes);
}

TEST(UploadStoreTest, FilesRecordsAsAWhole) {
  EXPECT_EQ(store().record("A"), std::nullopt);
  store().upsert(make("A", failed));
  const UploadRecord plain("A", "a", pending, 0, 0);
  store().upsert(plain);
  EXPECT_EQ(store().record("A")->encodeJson(), plain.encodeJson());
  EXPECT_EQ(readFile(file()), R"({"A":)" + plain.encodeJson().value() + "}");

  store().upsertBatch({make("B", failed), make("\"\n", excluded), make("B", completed),
                       make("C", completed), make("D", retrying), make("E", failed)});
  EXPECT_EQ(contents(), linesOf({plain, make("\"\n", excluded), make("B", completed),
                                 make("C", completed), make("D", retrying), make("E", failed)}));
  EXPECT_EQ(contentsAfterRestart(), contents());
  EXPECT_EQ(store().completedCount(), 2U);
  EXPECT_EQ(store().retryingCount(), 1U);
  EXPECT_EQ(store().excludedCount(), 1U);
  EXPECT_EQ(linesOf(store().failedRecords()), linesOf({make("E", failed)}));
}

/// What has changed since `someOfEach`: status, retries, error text and version of the tags.
std::string changes() {
  std::set<std::string> changes;
  for (const auto& before : someOfEach()) {
    auto now = store().record(before.id()).value();
    const auto change = now.id() + '>' + std::string(uploadStatusText(now.status)) + ',' +
                        std::to_string(now.retryCount) + ',' + now.errorMessage.value_or("") + ',' +
                        std::to_string(now.tagsVersion) + ' ';
    if (now.encodeJson() != before.encodeJson()) changes.insert(change);
    std::tie(now.status, now.retryCount, now.errorMessage, now.tagsVersion) =
        std::tie(before.status, before.retryCount, before.errorMessage, before.tagsVersion);
    EXPECT_EQ(now.encodeJson(), before.encodeJson()) << "all else is as it was";
  }
  return std::accumulate(changes.begin(), changes.end(), ""s);
}

TEST(UploadStoreTest, ChangesSelectedRecordsOnlyAndAlwaysWrites) {
  const std::tuple<const char*, std::function<void(UploadStore&)>, const char*> cases[] = {
      {"resetFailed", &UploadStore::resetFailed,
       "-1>pending,0,,3 3>pending,0,,3 failed>pending,0,,3 "},
      {"autoResetFailed 3", [](auto& s) { s.autoResetFailed(3); },
       "-1>pending,-1,,3 failed>pending,2,,3 "},
      {"autoResetFailed 0", [](auto& s) { s.autoResetFailed(0); }, "-1>pending,-1,,3 "},
      {"markExcluded", [](auto& s) { s.markExcluded("completed"); }, "completed>excluded,2,,3 "},
      {"markAllPendingAsStale", &UploadStore::markAllPendingAsStale,
       "retrying>pending,2,late,3 uploading>pending,2,late,3 "},
      {"resetTagsVersion", &UploadStore::resetTagsVersion,
       "-1>failed,-1,late,0 3>failed,3,late,0 completed>completed,2,late,0 "
       "excluded>excluded,2,late,0 failed>failed,2,late,0 pending>pending,2,late,0 "
       "remoteAlias>remoteAlias,2,late,0 retrying>retrying,2,late,0 uploading>uploading,2,late,0 "},
      {"upsertBatch of none", [](auto& s) { s.upsertBatch({}); }, ""}};
  for (const auto& [name, apply, expected] : cases) {
    store().upsertBatch(someOfEach());
    (void)store().allRecords();
    fs::remove_all(folder());  // The next write makes it anew.
    apply(store());
    EXPECT_EQ(changes(), expected) << name;
    EXPECT_EQ(contentsAfterRestart(), contents()) << name;
  }
}

TEST(UploadStoreTest, ClearingEmptiesTheFileAndResettingDeletesIt) {
  store().upsert(make("A", failed));
  store().clearAll();
  EXPECT_THAT(store().allRecords(), IsEmpty());
  EXPECT_EQ(readFile(file()), "{}");
  store().upsert(make("A", failed));
  store().resetForTesting();
  EXPECT_THAT(store().allRecords(), IsEmpty());
  EXPECT_FALSE(fs::exists(file()));
  store().markExcluded("unknown");
  (void)store().allRecords();
  EXPECT_FALSE(fs::exists(file()));
}

TEST(UploadStoreTest, FilesRecordsUnderTheNamesThatItReads) {
  writeFile(file(), kGood);
  EXPECT_EQ(store().record("K")->id(), "other");
  store().markExcluded("K");
  EXPECT_EQ(store().record("K")->status, excluded);
  EXPECT_THAT(readFile(file()), HasSubstr(R"(,"K":{"id":"other",)"));
}

TEST(UploadStoreTest, KeepsAnUndecodableFileAside) {
  const std::string good = kGood;
  auto unknownStatus = good;
  unknownStatus.replace(good.find("retrying"), 8, "Retrying");
  int kept = 0;
  for (const auto& bad : {unknownStatus, std::string(), good + "x", R"({"\ud800":{}})" + good}) {
    writeFile(file(), bad);
    EXPECT_EQ(contentsAfterRestart(), "") << bad;
    EXPECT_EQ(readFile(file()), bad);
    EXPECT_EQ(contentsAfterRestart({"A"}), "");
    const auto end = ++kept == 1 ? "" : "-" + std::to_string(kept);
    EXPECT_EQ(readFile(aside().string() + end), bad);
    EXPECT_EQ(contentsAfterRestart({"B"}), linesOf({make("A", pending)}));
  }
}

TEST(UploadStoreTest, WhatCannotBeKeptAsideIsNotReplaced) {
  // The path of the file may be so long, and that of its temporary file, but not the one kept.
  constexpr std::size_t kPathLength = 4085;
  fs::path data = testDirectory();
  const auto inData = file().lexically_relative(testDirectory() / "data").string();
  while (data.string().size() + inData.size() + 1 < kPathLength - 200) data /= std::string(99, 'd');
  data /= std::string(kPathLength - data.string().size() - inData.size() - 2, 'd');
  setenv("XDG_DATA_HOME", data.c_str(), 1);
  writeFile(data / inData, "[]");
  for (int i = 0; i < 2; ++i) store().upsert(make("A", completed));
  EXPECT_EQ(store().completedCount(), 1U);
  EXPECT_EQ(readFile(data / inData), "[]");
}

TEST(UploadStoreTest, WhatJsonCannotExpressStopsNothing) {
  store().upsertBatch({make("caf\xe9", failed), make("B", failed)});
  EXPECT_EQ(store().record("caf\xe9")->id(), "caf\xe9");
  const auto stored = linesOf({make("caf\uFFFD", failed), make("B", failed)});
  EXPECT_EQ(contentsAfterRestart(), stored);
  auto endless = make("B", completed);
  endless.creationDate->secondsSinceReferenceDate = HUGE_VAL;
  store().upsert(endless);
  EXPECT_EQ(store().completedCount(), 1U);
  EXPECT_EQ(contentsAfterRestart(), stored);
  store().upsert(make("B", excluded));
  EXPECT_EQ(store().excludedCount(), 1U);
  EXPECT_EQ(contentsAfterRestart(), linesOf({make("caf\uFFFD", failed), make("B", excluded)}));
}

TEST(UploadStoreTest, SurvivesWhatStandsInItsPlace) {
  writeFile(folder(), "a file where the folder should be");
  store().upsert(make("A", completed));
  EXPECT_EQ(store().completedCount(), 1U);
  fs::remove(folder());
  fs::create_directories(file() / "occupied");
  store().upsert(make("B", completed));
  EXPECT_EQ(store().completedCount(), 2U);
  EXPECT_EQ(contentsAfterRestart(), linesOf({make("A", completed), make("B", completed)}));
  EXPECT_TRUE(fs::is_directory(aside() / "occupied"));
}

constexpr std::int64_t kRecords = 100;
constexpr std::int64_t kChangesPerRead = 4;

/// After change n the store holds, for each of the last `kRecords` numbers up to n, the record that
/// this change filed; so the whole map follows from n. The file takes several writes.
UploadRecord recordOfChange(std::int64_t number) {
  const auto letter = static_cast<char>('a' + number % 26);
  return {std::to_string(number % kRecords), "f", uploading, number, 0,
          std::string(12'000, letter)};
}

/// The number of the last change in the store; -1 when the store is in no state that the changes,
/// made one after the other, lead through.
std::int64_t lastChange() {
  const auto records = store().allRecords();
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
  for (std::int64_t number = lastChange();; number += kChangesPerRead) {
    const auto line = std::to_string(number) + '\n';
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0) return 2;
    for (int i = 1; i <= kChangesPerRead; ++i) store().upsert(recordOfChange(number + i));
    (void)store().completedCount();
  }
});

TEST(UploadStoreTest, ARestartAfterAKillFindsAWholeState) {
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
