#include <orvane/bookkeeping/MultipartUploadStore.h>

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>

namespace orvane {
namespace {

using orvane::testing::outputOfChild;
using orvane::testing::readFile;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const std::string kPlain =
    R"({"assetId":"A","uploadId":"2~u","key":"media/a","contentType":"image/heic","totalParts":3,)"
    R"("fileSize":9000000000,"completedParts":{}})";

std::filesystem::path file() {
  return testing::testDirectory() /
         "data/org.orvane.engine/Application Support/multipart_upload_states_v1.json";
}

MultipartState plain() { return {"A", "2~u", "media/a", "image/heic", 3, 9'000'000'000, {}}; }

MultipartState rich() {
  return {"\"A\"\n", "\x1a", "citt\u00e0/\\", "", -1, INT64_MIN, {{"1", "\"e\""}, {"10", ""}}};
}

/// Says, in a process of its own, how many states the store holds and how many of them are the two
/// above; with an argument it then queues a change and returns.
const testing::ChildMain kReader("multipart-store-reader", [](const auto& arguments) {
  auto& store = MultipartUploadStore::shared();
  const int known = (store.state("A") == plain()) + (store.state(rich().assetId()) == rich());
  std::cout << store.allStates().size() << " " << known;
  if (!arguments.empty()) store.save({arguments[0], "", "", "", 0, 0, {}});
  return 0;
});

TEST(MultipartUploadStoreTest, KeepsStatesUntilTheyAreRemoved) {
  auto& store = MultipartUploadStore::shared();
  EXPECT_EQ(store.state("A"), std::nullopt);
  EXPECT_THAT(store.allStates(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(file()));
  auto earlier = plain();
  earlier.completedParts = {{"1", "e1"}, {"2", "e2"}};
  store.save(earlier);
  store.save(plain());
  store.save(rich());
  EXPECT_THAT(store.allStates(), UnorderedElementsAre(plain(), rich()));
  EXPECT_EQ(outputOfChild("multipart-store-reader"), "2 2");

  store.remove(rich().assetId());
  EXPECT_THAT(store.allStates(), UnorderedElementsAre(plain()));
  std::filesystem::remove(file());
  store.remove("unknown");
  EXPECT_EQ(store.state("A"), plain());
  EXPECT_EQ(readFile(file()), R"({"A":)" + kPlain + "}");
  EXPECT_EQ(outputOfChild("multipart-store-reader", {"C"}), "1 1");
  EXPECT_EQ(outputOfChild("multipart-store-reader"), "2 1");

  store.removeAll();
  EXPECT_THAT(store.allStates(), IsEmpty());
  EXPECT_EQ(readFile(file()), "{}");
  store.save(plain());
  store.resetForTesting();
  EXPECT_THAT(store.allStates(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST(MultipartUploadStoreTest, LoadsWholeFilesOnly) {
  const auto with = [&](const std::string& from, const std::string& to) {
    auto changed = kPlain;
    changed.replace(changed.find(from), from.size(), to);
    return R"({"A":)" + kPlain + R"(,"B":)" + changed + "}";
  };
  const std::pair<std::string, const char*> cases[] = {
      {with("3", "3.0,\"unknown\":[{}]"), "2 1"},
      {with("{}", R"({"1":"a","1":"b"})"), "2 1"},
      {with("\"fileSize\":9000000000,", ""), "0 0"},
      {with(",\"completedParts\":{}", ""), "0 0"},
      {with("{}", "null"), "0 0"},
      {with("{}", R"({"1":2})"), "0 0"},
      {with("\"2~u\"", "2"), "0 0"},
      {with("9000000000", "0.5"), "0 0"},
      {kPlain, "0 0"}};
  for (const auto& [text, count] : cases) {
    testing::writeFile(file(), text);
    EXPECT_EQ(outputOfChild("multipart-store-reader"), count) << text;
    EXPECT_EQ(readFile(file()), text);
  }
}

}  // namespace
}  // namespace orvane
