// The transport against a real object store that verifies signatures and payload hashes.

#include <orvane/transport/S3MultipartUploader.h>
#include <orvane/transport/S3Uploader.h>
#include <orvane/transport/TalvexAPIService.h>
#include <orvane/transport/XmlText.h>

#include "support/ObjectStore.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/Test.h"

namespace orvane {
namespace {

using testing::configFor;
using testing::ObjectStore;

Bytes bytes(std::string_view text) {
  const auto view = bytesOf(text);
  return {view.begin(), view.end()};
}

Result<std::string> put(const S3Config& config, const std::string& key, std::string_view text) {
  return testing::run(S3Uploader::uploadData(bytes(text), key, "image/jpeg", config));
}

/// Listed in more than two pages. Every key may be the last of a page, which this store hands out
/// as the token for the next one.
TEST(TransportStore, KeepsAndListsObjectsUnderEveryKindOfKey) {
  const ObjectStore store;
  const auto config = configFor(store);
  const std::vector<std::string> keys = {"with space.jpg", "a+b=c&d.jpg",
                                         "50%.jpg",        "q?x#y.jpg",
                                         "'single'\".jpg", "a//b/./../c.jpg",
                                         "folder/",        "citt\u00e0",
                                         "e\u0301",        "\u4e2d\u6587~!$(),;:@[]{}|\\^`<>",
                                         "%2F%41.jpg",     std::string(200, 'n')};
  for (const auto& key : keys) {
    ASSERT_TRUE(put(config, key, "content of " + key)) << key;
    EXPECT_EQ(store.get(store.prefix() + key), "content of " + key) << key;
  }
  constexpr std::size_t kObjects = 2'100;
  const std::string folder = "a+b/=c &d;\u00e9'<%2B?#\"&amp;/";
  std::atomic<std::size_t> next = 0;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 16; ++i) {
      threads.emplace_back([&] {
        for (auto number = next++; number < kObjects; number = next++) {
          EXPECT_TRUE(put(config, folder + std::to_string(10'000 + number), "content"));
        }
      });
    }
  }
  for (const auto& prefix : {store.prefix(), store.prefix() + folder}) {
    const auto listed = TalvexAPIService::shared().listObjects(config, prefix).value();
    const auto stored = store.list(prefix);
    ASSERT_EQ(stored.size(), kObjects + (prefix == store.prefix() ? keys.size() : 0));
    ASSERT_EQ(listed.size(), stored.size());
    for (std::size_t i = 0; i < stored.size(); ++i) {
      EXPECT_EQ(withoutXmlReferences(listed[i].key), stored[i].key);
      EXPECT_EQ("\"" + listed[i].eTag + "\"", stored[i].etag);
    }
  }
}

TEST(TransportStore, KeepsFilesOfEverySize) {
  const ObjectStore store;
  S3MultipartUploader uploader(configFor(store));
  constexpr auto kChunk = static_cast<std::size_t>(S3MultipartUploader::chunkSize);
  for (const std::size_t size : {std::size_t{0}, kChunk - 1, kChunk, 3 * kChunk + 1}) {
    std::string content(size, '\0');
    std::ranges::generate(content, std::mt19937(static_cast<unsigned>(size)));
    writeFile(testDirectory() / "file", content);
    std::promise<Result<void>> done;
    uploader.upload(testDirectory() / "file", "file", "image/heic", {},
                    [&](Result<void> result) { done.set_value(std::move(result)); });
    ASSERT_TRUE(done.get_future().get()) << size;
    EXPECT_TRUE(store.get(store.prefix() + "file") == content) << size;
    EXPECT_EQ(store.head(store.prefix() + "file")->contentType, "image/heic");
  }
  EXPECT_FALSE(store.hasUnfinishedUploads());
}

}  // namespace
}  // namespace orvane
