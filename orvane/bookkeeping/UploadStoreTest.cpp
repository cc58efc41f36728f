#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <sys/fsuid.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using orvane::testing::ChildMain;
using orvane::testing::outputOfChild;
using orvane::testing::readFile;
using orvane::testing::testDirectory;
using orvane::testing::writeFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr const char* kGood =
    R"({"A":{"id":"A","filename":"a","status":"failed","bytesUploaded":1,"totalBytes":2,"x":[1]},)"
    R"("K":{"id":"other","filename":"k","status":"retrying","bytesUploaded":1,"totalBytes":2}})";

fs::path folder() { return testDirectory() / "data/org.orvane.engine/Application Support"; }
fs::path file() { return folder() / "upload_records_v1.json"; }

std::vector<std::string> namesInFolder() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder())) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

UploadRecord make(const std::string& id, UploadStatus status, std::int64_t retries = 0) {
  return {id, "media/" + id, status, 5, 10, "late", Date{1.5}, true, retries, "e", {"mare"}, 3};
}

const std::vector<UploadStatus> kAllStatuses = {
    UploadStatus::pending,  UploadStatus::uploading, UploadStatus::completed,  UploadStatus::failed,
    UploadStatus::retrying, UploadStatus::excluded,  UploadStatus::remoteAlias};

/// One record of every status, filed under its name.
std::vector<UploadRecord> oneOfEach() {
  std::vector<UploadRecord> records;
  for (const auto status : kAllStatuses) {
    records.push_back(make(std::string(uploadStatusText(status)), status, 2));
  }
  return records;
}

/// What the store holds, as JSON by identifier.
std::map<std::string, std::string> contents() {
  std::map<std::string, std::string> all;
  for (const auto& record : UploadStore::shared().allRecords()) {
    all[record.id()] = record.encodeJson().value();
  }
  return all;
}

/// What a store in a new process holds, one record a line.
const ChildMain kReader("upload-store-reader", [](const auto&) {
  for (const auto& [id, json] : contents()) std::cout << json << '\n';
  return 0;
});

std::string contentsAfterRestart() { return outputOfChild("upload-store-reader"); }

std::string asLines(const std::map<std::string, std::string>& all) {
  std::string lines;
  for (const auto& [id, json] : all) lines += json + '\n';
  return lines;
}

/// `oneOfEach` after `change` has been made to those whose status is in `selected`.
template <class Change>
std::map<std::string, std::string> eachAfter(const std::vector<UploadStatus>& selected,
                                             Change change) {
  std::map<std::string, std::string> all;
  for (auto& record : oneOfEach()) {
    if (std::ranges::count(selected, record.status) > 0) change(record);
    all[record.id()] = record.encodeJson().value();
  }
  return all;
}

TEST(UploadStoreTest, StartsEmpty) {
  auto& store = UploadStore::shared();
  EXPECT_EQ(store.record("A"), std::nullopt);
  EXPECT_THAT(store.allRecords(), IsEmpty());
  EXPECT_THAT(store.failedRecords(), IsEmpty());
  EXPECT_EQ(store.completedCount() + store.retryingCount() + store.excludedCount(), 0U);
  EXPECT_FALSE(fs::exists(file()));
}

TEST(UploadStoreTest, FilesRecordsAsAWhole) {
  auto& store = UploadStore::shared();
  store.upsert(make("A", UploadStatus::failed));
  const UploadRecord plain("A", "a", UploadStatus::pending, 0, 0);
  store.upsert(plain);
  EXPECT_EQ(store.record("A")->encodeJson(), plain.encodeJson());
  EXPECT_EQ(readFile(file()), R"({"A":)" + plain.encodeJson().value() + "}");

  store.upsertBatch({make("B", UploadStatus::failed), make("\"\n", UploadStatus::excluded),
                     make("B", UploadStatus::completed)});
  EXPECT_EQ(store.record("B")->status, UploadStatus::completed);
  EXPECT_EQ(store.allRecords().size(), 3U);
  EXPECT_EQ(contentsAfterRestart(), asLines(contents()));

  auto copy = store.record("A");
  copy->bytesUploaded = 99;
  EXPECT_EQ(store.record("A")->bytesUploaded, 0);
}

TEST(UploadStoreTest, CountsByStatus) {
  auto& store = UploadStore::shared();
  store.upsertBatch(oneOfEach());
  store.upsertBatch({make("c2", UploadStatus::completed), make("c3", UploadStatus::completed),
                     make("r2", UploadStatus::retrying)});
  EXPECT_EQ(store.completedCount(), 3U);
  EXPECT_EQ(store.retryingCount(), 2U);
  EXPECT_EQ(store.excludedCount(), 1U);
  ASSERT_EQ(store.failedRecords().size(), 1U);
  EXPECT_EQ(store.failedRecords()[0].id(), "failed");
}

TEST(UploadStoreTest, ChangesSelectedRecordsOnly) {
  struct Case {
    const char* name;
    void (*apply)(UploadStore&);
    std::vector<UploadStatus> selected;
    void (*change)(UploadRecord&);
  };
  const std::vector<Case> cases = {
      {"resetFailed",
       [](UploadStore& store) { store.resetFailed(); },
       {UploadStatus::failed},
       [](UploadRecord& r) {
         r.status = UploadStatus::pending, r.errorMessage = {}, r.retryCount = 0;
       }},
      {"autoResetFailed",
       [](UploadStore& store) { store.autoResetFailed(3); },
       {UploadStatus::failed},
       [](UploadRecord& r) { r.status = UploadStatus::pending, r.errorMessage = {}; }},
      {"autoResetFailed at the limit",
       [](UploadStore& store) { store.autoResetFailed(2); },
       {},
       [](UploadRecord&) {}},
      {"markExcluded",
       [](UploadStore& store) { store.markExcluded("completed"); },
       {UploadStatus::completed},
       [](UploadRecord& r) { r.status = UploadStatus::excluded, r.errorMessage = {}; }},
      {"resetTagsVersion", [](UploadStore& store) { store.resetTagsVersion(); }, kAllStatuses,
       [](UploadRecord& r) { r.tagsVersion = 0; }},
      {"markAllPendingAsStale",
       [](UploadStore& store) { store.markAllPendingAsStale(); },
       {UploadStatus::uploading, UploadStatus::retrying},
       [](UploadRecord& r) { r.status = UploadStatus::pending; }}};
  for (const auto& c : cases) {
    auto& store = UploadStore::shared();
    store.upsertBatch(oneOfEach());
    c.apply(store);
    const auto expected = eachAfter(c.selected, c.change);
    EXPECT_EQ(contents(), expected) << c.name;
    EXPECT_EQ(contentsAfterRestart(), asLines(expected)) << c.name;
  }
}

TEST(UploadStoreTest, ComparesRetriesAsSignedNumbers) {
  auto& store = UploadStore::shared();
  const auto fill = [&] {
    store.clearAll();
    for (const int retries : {-1, 0, 1, 2, 3, 4}) {
      store.upsert(make(std::to_string(retries), UploadStatus::failed, retries));
    }
  };
  const auto stillFailed = [&](std::int64_t maxRetries) {
    fill();
    store.autoResetFailed(maxRetries);
    std::vector<std::int64_t> retries;
    for (const auto& record : store.failedRecords()) retries.push_back(record.retryCount);
    return retries;
  };
  EXPECT_THAT(stillFailed(3), UnorderedElementsAre(3, 4));
  EXPECT_EQ(store.record("2")->retryCount, 2);
  EXPECT_THAT(stillFailed(0), UnorderedElementsAre(0, 1, 2, 3, 4));
  EXPECT_THAT(stillFailed(-5), UnorderedElementsAre(-1, 0, 1, 2, 3, 4));
}

TEST(UploadStoreTest, WritesOnEveryChangeButAnExclusionOfNothing) {
  auto& store = UploadStore::shared();
  const std::vector<std::pair<const char*, void (*)(UploadStore&)>> writing = {
      {"upsert", [](UploadStore& s) { s.upsert(make("A", UploadStatus::completed)); }},
      {"upsertBatch", [](UploadStore& s) { s.upsertBatch({}); }},
      {"resetFailed", [](UploadStore& s) { s.resetFailed(); }},
      {"autoResetFailed", [](UploadStore& s) { s.autoResetFailed(0); }},
      {"markExcluded", [](UploadStore& s) { s.markExcluded("A"); }},
      {"resetTagsVersion", [](UploadStore& s) { s.resetTagsVersion(); }},
      {"markAllPendingAsStale", [](UploadStore& s) { s.markAllPendingAsStale(); }},
      {"clearAll", [](UploadStore& s) { s.clearAll(); }}};
  for (const auto& [name, change] : writing) {
    fs::remove_all(folder());  // The folder too is made anew.
    change(store);
    (void)store.allRecords();
    EXPECT_TRUE(fs::exists(file())) << name;
  }
  EXPECT_EQ(readFile(file()), "{}");
  fs::remove(file());
  store.markExcluded("unknown");
  EXPECT_THAT(store.allRecords(), IsEmpty());
  EXPECT_FALSE(fs::exists(file()));
}

TEST(UploadStoreTest, ResetDeletesTheFile) {
  auto& store = UploadStore::shared();
  store.upsert(make("A", UploadStatus::failed));
  store.resetForTesting();
  EXPECT_THAT(store.allRecords(), IsEmpty());
  EXPECT_FALSE(fs::exists(file()));
  store.resetForTesting();
  EXPECT_EQ(contentsAfterRestart(), "");
}

TEST(UploadStoreTest, LoadsWhatItFinds) {
  writeFile(file(), kGood);
  auto& store = UploadStore::shared();
  ASSERT_EQ(store.allRecords().size(), 2U);
  EXPECT_EQ(store.record("K")->id(), "other");
  EXPECT_EQ(store.record("other"), std::nullopt);
  EXPECT_EQ(readFile(file()), kGood);
  store.markExcluded("K");
  store.resetFailed();
  EXPECT_EQ(store.record("K")->status, UploadStatus::excluded);
  EXPECT_EQ(readFile(file()), R"({"A":)" + store.record("A")->encodeJson().value() + R"(,"K":)" +
                                  store.record("K")->encodeJson().value() + "}");
}

/// Says how many records it finds, then queues one change for each argument and returns.
const ChildMain kChanger("upload-store-changer", [](const std::vector<std::string>& ids) {
  std::cout << UploadStore::shared().allRecords().size();
  for (const auto& id : ids) UploadStore::shared().upsert(make(id, UploadStatus::pending));
  return 0;
});

TEST(UploadStoreTest, QueuedChangesSurviveANormalExit) {
  std::vector<std::string> ids;
  for (int i = 0; i < 30; ++i) ids.push_back(std::to_string(i));
  EXPECT_EQ(outputOfChild("upload-store-changer", ids), "0");
  EXPECT_EQ(outputOfChild("upload-store-changer"), "30");
}

TEST(UploadStoreTest, KeepsAnUndecodableFileAside) {
  const std::string good = kGood;
  auto unknownStatus = good;
  unknownStatus.replace(good.find("retrying"), 8, "Retrying");
  std::vector<std::string> names = {"upload_records_v1.json"};
  for (const auto& bad : {unknownStatus, std::string(), std::string("[]"), good + "x",
                          good.substr(0, good.size() - 1), R"({"\ud800":{}})" + good}) {
    writeFile(file(), bad);
    EXPECT_EQ(outputOfChild("upload-store-changer"), "0") << bad;
    EXPECT_EQ(readFile(file()), bad);
    EXPECT_EQ(outputOfChild("upload-store-changer", {"A"}), "0");
    names.push_back("upload_records_v1.json.undecodable");
    if (names.size() > 2) names.back() += "-" + std::to_string(names.size() - 1);
    EXPECT_EQ(readFile(folder() / names.back()), bad);
    EXPECT_EQ(outputOfChild("upload-store-changer", {"B"}), "1");
    EXPECT_THAT(namesInFolder(), ::testing::UnorderedElementsAreArray(names));
  }
}

TEST(UploadStoreTest, AFileThatCannotBeReadIsKept) {
  writeFile(file(), kGood);
  fs::permissions(file(), fs::perms::none);
  // Root may read it all the same; this thread's access to files becomes that of nobody.
  const auto user = static_cast<uid_t>(setfsuid(65534));
  const auto found = UploadStore::shared().allRecords();
  setfsuid(user);
  prctl(PR_SET_DUMPABLE, 1);  // For the leak check.
  fs::permissions(file(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_THAT(found, IsEmpty());
  UploadStore::shared().clearAll();
  EXPECT_THAT(UploadStore::shared().allRecords(), IsEmpty());
  EXPECT_EQ(readFile(file() += ".undecodable"), kGood);
}

TEST(UploadStoreTest, KeepsAFileAsideOnlyOnce) {
  writeFile(file(), "[]");
  // As a process leaves it that ends between keeping and replacing the file.
  fs::create_hard_link(file(), file() += ".undecodable");
  UploadStore::shared().clearAll();
  UploadStore::shared().clearAll();
  EXPECT_THAT(UploadStore::shared().allRecords(), IsEmpty());
  EXPECT_THAT(namesInFolder(),
              UnorderedElementsAre("upload_records_v1.json", "upload_records_v1.json.undecodable"));
  EXPECT_EQ(readFile(file() += ".undecodable"), "[]");
}

TEST(UploadStoreTest, WhatCannotBeWrittenStaysInMemory) {
  auto& store = UploadStore::shared();
  store.upsert(make("A", UploadStatus::completed));
  ASSERT_TRUE(store.record("A"));
  const auto before = readFile(file());
  store.upsert(make("\xff", UploadStatus::completed));
  store.upsert(make("B", UploadStatus::completed));
  EXPECT_EQ(store.completedCount(), 3U);
  EXPECT_EQ(readFile(file()), before);
  store.clearAll();
  store.upsert(make("B", UploadStatus::completed));
  EXPECT_EQ(contentsAfterRestart(), asLines(contents()));

  auto endless = make("B", UploadStatus::failed);
  endless.creationDate->secondsSinceReferenceDate = HUGE_VAL;
  store.upsert(endless);
  store.resetFailed();
  EXPECT_EQ(store.completedCount() + store.failedRecords().size(), 0U);
  endless.creationDate.reset();
  store.upsert(endless);
  EXPECT_EQ(contentsAfterRestart(), asLines(contents()));
}

TEST(UploadStoreTest, SurvivesAFolderInTheFilesPlace) {
  fs::create_directories(file() / "occupied");
  auto& store = UploadStore::shared();
  store.upsert(make("A", UploadStatus::completed));
  EXPECT_EQ(store.completedCount(), 1U);
  EXPECT_TRUE(fs::is_directory(file()));
  store.resetForTesting();
  EXPECT_TRUE(fs::is_directory(file()));
  EXPECT_THAT(namesInFolder(), ElementsAre("upload_records_v1.json"));
  fs::remove_all(file());
  store.upsert(make("B", UploadStatus::completed));
  EXPECT_EQ(contentsAfterRestart(), asLines(contents()));
}

TEST(UploadStoreTest, SurvivesAFileInTheFoldersPlace) {
  writeFile(folder(), "in the way");
  auto& store = UploadStore::shared();
  store.upsert(make("A", UploadStatus::completed));
  EXPECT_EQ(store.completedCount(), 1U);
  EXPECT_EQ(readFile(folder()), "in the way");
}

TEST(UploadStoreTest, WorksWithoutAnyFolder) {
  unsetenv("XDG_DATA_HOME");
  unsetenv("HOME");
  auto& store = UploadStore::shared();
  store.upsertBatch(oneOfEach());
  EXPECT_EQ(contents(), eachAfter({}, [](UploadRecord&) {}));
  store.resetForTesting();
  EXPECT_THAT(store.allRecords(), IsEmpty());
  EXPECT_THAT(fs::directory_iterator(testDirectory()), ::testing::Eq(fs::directory_iterator()));
}

TEST(UploadStoreTest, SerialisesConcurrentCallers) {
  constexpr int kThreads = 4;
  constexpr int kRecords = 50;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      auto& store = UploadStore::shared();
      for (int i = 0; i < kRecords; ++i) {
        const auto id = std::to_string(thread) + "-" + std::to_string(i);
        store.upsert(make(id, UploadStatus::failed));
        if (!store.record(id) || store.failedRecords().empty()) std::abort();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(UploadStore::shared().failedRecords().size(), std::size_t{kThreads} * kRecords);
  EXPECT_EQ(contentsAfterRestart(), asLines(contents()));
}

}  // namespace
}  // namespace orvane
