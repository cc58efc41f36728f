#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/bookkeeping/MultipartUploadStore.h>
#include <orvane/bookkeeping/UploadStore.h>

#include <filesystem>
#include <iostream>
#include <string>

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
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr const char* kPlain =
    R"({"assetId":"A","uploadId":"2~u","key":"media/a","contentType":"image/heic","totalParts":3,)"
    R"("fileSize":9000000000,"completedParts":{}})";

fs::path file() {
  return testDirectory() /
         "data/org.orvane.engine/Application Support/multipart_upload_states_v1.json";
}

MultipartState plain() { return {"A", "2~u", "media/a", "image/heic", 3, 9'000'000'000, {}}; }

MultipartState rich() {
  return {"\"A\"\n", "\x1a", "citt\u00e0/\\", "", -1, INT64_MIN, {{"1", "\"e\""}, {"10", ""}}};
}

/// Says, in a process of its own, whether the two states above are all that the store holds; with
/// an argument it then queues a change and returns.
const ChildMain kReader("multipart-store-reader", [](const auto& arguments) {
  auto& store = MultipartUploadStore::shared();
  const bool same = store.state("A") == plain() && store.state(rich().assetId()) == rich();
  std::cout << store.allStates().size() << (same ? " same" : "");
  if (!arguments.empty()) store.save({arguments[0], "", "", "", 0, 0, {}});
  return 0;
});

TEST(MultipartUploadStoreTest, KeepsStatesAcrossProcesses) {
  auto& store = MultipartUploadStore::shared();
  EXPECT_EQ(store.state("A"), std::nullopt);
  EXPECT_THAT(store.allStates(), IsEmpty());
  EXPECT_FALSE(fs::exists(file()));

  auto earlier = plain();
  earlier.completedParts = {{"1", "e1"}, {"2", "e2"}};
  store.save(earlier);
  store.save(plain());
  EXPECT_EQ(store.state("A"), plain());
  EXPECT_EQ(readFile(file()), R"({"A":)" + std::string(kPlain) + "}");
  store.save(rich());
  EXPECT_THAT(store.allStates(), UnorderedElementsAre(plain(), rich()));
  EXPECT_EQ(outputOfChild("multipart-store-reader", {"C"}), "2 same");
  EXPECT_EQ(outputOfChild("multipart-store-reader"), "3 same");
  UploadStore::shared().clearAll();
  EXPECT_THAT(store.allStates(), UnorderedElementsAre(plain(), rich()));
}

TEST(MultipartUploadStoreTest, RemovesStates) {
  auto& store = MultipartUploadStore::shared();
  store.save(plain());
  store.save(rich());
  store.remove(rich().assetId());
  EXPECT_THAT(store.allStates(), UnorderedElementsAre(plain()));
  fs::remove(file());
  store.remove("unknown");
  EXPECT_EQ(store.state("A"), plain());
  EXPECT_EQ(readFile(file()), R"({"A":)" + std::string(kPlain) + "}");

  store.removeAll();
  EXPECT_THAT(store.allStates(), IsEmpty());
  EXPECT_EQ(readFile(file()), "{}");
  EXPECT_EQ(outputOfChild("multipart-store-reader"), "0");
  store.save(plain());
  store.resetForTesting();
  EXPECT_THAT(store.allStates(), IsEmpty());
  EXPECT_FALSE(fs::exists(file()));
  EXPECT_EQ(outputOfChild("multipart-store-reader"), "0");
}

TEST(MultipartUploadStoreTest, LoadsWholeFilesOnly) {
  const std::string entry = kPlain;
  const auto with = [&](const std::string& from, const std::string& to) {
    auto changed = entry;
    return R"({"A":)" + entry + R"(,"B":)" + changed.replace(entry.find(from), from.size(), to) +
           "}";
  };
  const std::pair<std::string, const char*> cases[] = {{with("3", "3"), "2"},
                                                       {with("3", "3.0,\"unknown\":[{}]"), "2"},
                                                       {with("{}", R"({"1":"a","1":"b"})"), "2"},
                                                       {with("\"fileSize\":9000000000,", ""), "0"},
                                                       {with("\"assetId\":\"A\",", ""), "0"},
                                                       {with(",\"completedParts\":{}", ""), "0"},
                                                       {with("{}", "null"), "0"},
                                                       {with("{}", "[]"), "0"},
                                                       {with("{}", R"({"1":2})"), "0"},
                                                       {with("\"2~u\"", "2"), "0"},
                                                       {with("3", "\"3\""), "0"},
                                                       {with("9000000000", "0.5"), "0"},
                                                       {entry, "0"}};
  for (const auto& [text, count] : cases) {
    writeFile(file(), text);
    EXPECT_EQ(outputOfChild("multipart-store-reader"), count) << text;
    EXPECT_EQ(readFile(file()), text);
  }
  EXPECT_EQ(outputOfChild("multipart-store-reader", {"C"}), "0");
  EXPECT_EQ(readFile(file() += ".undecodable"), entry);

  writeFile(file(), R"({"K":)" + entry.substr(0, entry.size() - 1) + R"(,"more":[]}})");
  EXPECT_EQ(MultipartUploadStore::shared().state("K"), plain());
  EXPECT_EQ(MultipartUploadStore::shared().state("A"), std::nullopt);
  MultipartUploadStore::shared().remove("A");
  EXPECT_EQ(MultipartUploadStore::shared().allStates().size(), 1U);
  EXPECT_EQ(readFile(file()), R"({"K":)" + entry + "}") << "without the unknown member";
}

}  // namespace
}  // namespace orvane
