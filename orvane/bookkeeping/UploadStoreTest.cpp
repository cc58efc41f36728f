#include <orvane/bookkeeping/UploadStore.h>

#include "support/Test.h"

#include <sys/fsuid.h>
#include <sys/prctl.h>

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
  for (int n = -1; n < 40; ++n) records.push_back(make(std::to_string(n), failed, n));
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

TEST(UploadStoreTest, ChangesSelectedRecordsOnlyAndAlwaysWrites) {
  const auto tryAgainBelow = [](std::int64_t limit) {
    return [limit](UploadRecord& r) {
      if (r.status == failed && r.retryCount < limit) r.status = pending, r.errorMessage = {};
    };
  };
  const struct {
    const char* name;
    std::function<void(UploadStore&)> apply;
    std::function<void(UploadRecord&)> expectedChange;
  } cases[] = {
      {"resetFailed", &UploadStore::resetFailed,
       [=](auto& r) {
         const bool wasFailed = r.status == failed;
         tryAgainBelow(INT64_MAX)(r);
         if (wasFailed) r.retryCount = 0;
       }},
      {"autoResetFailed 3", [](auto& s) { s.autoResetFailed(3); }, tryAgainBelow(3)},
      {"autoResetFailed 0", [](auto& s) { s.autoResetFailed(0); }, tryAgainBelow(0)},
      {"markExcluded", [](auto& s) { s.markExcluded("completed"); },
       [](auto& r) {
         if (r.status == completed) r.status = excluded, r.errorMessage = {};
       }},
      {"resetTagsVersion", &UploadStore::resetTagsVersion, [](auto& r) { r.tagsVersion = 0; }},
      {"markAllPendingAsStale", &UploadStore::markAllPendingAsStale,
       [](auto& r) {
         if (r.status == uploading || r.status == retrying) r.status = pending;
       }},
      {"upsertBatch of none", [](auto& s) { s.upsertBatch({}); }, [](auto&) {}}};
  for (const auto& [name, apply, expectedChange] : cases) {
    SCOPED_TRACE(name);
    auto expected = someOfEach();
    store().upsertBatch(expected);
    (void)store().allRecords();
    fs::remove_all(folder());  // The next write makes it anew.
    apply(store());
    std::ranges::for_each(expected, expectedChange);
    EXPECT_EQ(contents(), linesOf(expected));
    EXPECT_EQ(contentsAfterRestart(), linesOf(expected));
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
  EXPECT_EQ(store().record("other"), std::nullopt);
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

TEST(UploadStoreTest, AFileThatCannotBeReadIsKept) {
  writeFile(file(), kGood);
  fs::permissions(file(), fs::perms::none);
  // Root may read it all the same; this thread's access to files becomes that of nobody.
  const auto user = static_cast<uid_t>(setfsuid(65534));
  const auto found = store().allRecords();
  setfsuid(user);
  prctl(PR_SET_DUMPABLE, 1);  // For the leak check.
  fs::permissions(file(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_THAT(found, IsEmpty());
  store().clearAll();
  EXPECT_THAT(store().allRecords(), IsEmpty());
  EXPECT_EQ(readFile(aside()), kGood);
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

TEST(UploadStoreTest, WorksWithoutAnyFolder) {
  unsetenv("XDG_DATA_HOME");
  unsetenv("HOME");
  store().upsertBatch(someOfEach());
  EXPECT_EQ(contents(), linesOf(someOfEach()));
  store().resetForTesting();
  EXPECT_TRUE(fs::is_empty(testDirectory()));
}

}  // namespace
}  // namespace orvane
