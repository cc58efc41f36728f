// The transport against a real object store that verifies signatures and payload hashes.

#include <orvane/platform/http/HttpSession.h>
#include <orvane/transport/AWSSignatureV4.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/S3MultipartUploader.h>
#include <orvane/transport/S3Uploader.h>
#include <orvane/transport/TalvexAPIService.h>
#include <orvane/transport/XmlText.h>

#include "support/ChildProcess.h"
#include "support/MemoryGrowth.h"
#include "support/ObjectStore.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using testing::configFor;
using testing::ObjectStore;

std::string randomText(std::size_t size) {
  std::mt19937_64 random(size);
  std::string text(size, '\0');
  for (auto& c : text) c = static_cast<char>(random());
  return text;
}

Result<std::string> put(const S3Config& config, const std::string& key, std::string_view text) {
  const auto view = bytesOf(text);
  return testing::run(
      S3Uploader::uploadData({view.begin(), view.end()}, key, "image/jpeg", config));
}

Result<void> uploadFile(const S3Config& config, const std::filesystem::path& file,
                        const std::string& key) {
  S3MultipartUploader uploader(config);
  std::promise<Result<void>> done;
  uploader.upload(file, key, "image/heic", {},
                  [&](Result<void> result) { done.set_value(std::move(result)); });
  return done.get_future().get();
}

TEST(TransportStore, KeepsObjectsUnderEveryKindOfKey) {
  const ObjectStore store;
  const auto config = configFor(store);
  const std::vector<std::string> keys = {"with space.jpg", "a+b=c&d.jpg",
                                         "50%.jpg",        "q?x#y.jpg",
                                         "'single'\".jpg", "a//b/./../c.jpg",
                                         "folder/",        "citt\u00e0",
                                         "e\u0301",        "\u4e2d\u6587~!$(),;:@[]{}|\\^`<>",
                                         "%2F%41.jpg",     std::string(200, 'n')};
  for (const auto& key : keys) {
    const auto etag = put(config, key, "content of " + key);
    ASSERT_TRUE(etag) << key << ": " << etag.error().description();
    EXPECT_EQ(store.get(store.prefix() + key), "content of " + key) << key;
    EXPECT_EQ(store.head(store.prefix() + key)->etag, "\"" + *etag + "\"") << key;
  }
  EXPECT_EQ(store.list(store.prefix()).size(), keys.size());
}

TEST(TransportStore, KeepsFilesOfEverySize) {
  const ObjectStore store;
  const auto config = configFor(store);
  const auto file = testing::testDirectory() / "file";
  constexpr auto kChunk = static_cast<std::size_t>(S3MultipartUploader::chunkSize);
  for (const std::size_t size : {std::size_t{0}, kChunk - 1, kChunk, kChunk + 1, 3 * kChunk}) {
    const auto content = randomText(size);
    testing::writeFile(file, content);
    const auto result = uploadFile(config, file, "file");
    ASSERT_TRUE(result) << size << ": " << result.error().description();
    EXPECT_TRUE(store.get(store.prefix() + "file") == content) << size;
    EXPECT_EQ(store.head(store.prefix() + "file")->contentType, "image/heic");
  }
  EXPECT_TRUE(store.unfinishedUploads(store.prefix()).empty());
}

TEST(TransportStore, RefusesWhatIsNotSignedRight) {
  const ObjectStore store;
  auto config = configFor(store);
  const auto statusOf = [&](AWSSignatureV4::TimePoint date, std::string_view hashed,
                            std::string_view sent) {
    const AWSSignatureV4 signer(config.accessKey, config.secretKey, config.region);
    const auto request =
        signer.signedRequest("PUT", config.url("k").value(), {}, bytesOf(hashed), false, date);
    const auto view = bytesOf(sent);
    return platform::HttpSession::shared()
        .sendAndWait(request, SharedBytes(Bytes(view.begin(), view.end())))
        .value()
        .status;
  };
  const auto now = std::chrono::system_clock::now();
  EXPECT_EQ(statusOf(now, "same", "same"), 200);
  EXPECT_EQ(statusOf(now, "same", "else"), 400);
  EXPECT_EQ(statusOf(now - 20min, "same", "same"), 403);
  EXPECT_EQ(statusOf(now + 20min, "same", "same"), 403);
  config.secretKey += "x";
  EXPECT_EQ(put(config, "k", "x").error(), S3Error::httpError(403));
  config.accessKey = "nobody";
  EXPECT_EQ(put(config, "k", "x").error(), S3Error::httpError(403));
  EXPECT_EQ(store.get(store.prefix() + "k"), "same");
}

TEST(TransportStore, SpeaksTheMultipartProtocol) {
  const ObjectStore store;
  const auto config = configFor(store);
  const auto id = S3Uploader::initiateMultipartUpload("m p", "image/heic", config);
  ASSERT_TRUE(id) << id.error().description();
  const auto unfinished = store.unfinishedUploads(store.prefix());
  ASSERT_EQ(unfinished.size(), 1U);
  EXPECT_EQ(unfinished[0].uploadId, *id);
  EXPECT_EQ(S3Uploader::completeMultipartUpload("m p", *id, {{1, "0123"}}, config).error(),
            S3Error::httpError(400));
  S3Uploader::abortMultipartUpload("m p", *id, config);
  EXPECT_TRUE(store.unfinishedUploads(store.prefix()).empty());
  EXPECT_FALSE(S3Uploader::completeMultipartUpload("m p", *id, {{1, "0123"}}, config));
}

/// Puts `count` objects whose keys begin with `start`, some at a time.
void putMany(const S3Config& config, const std::string& start, int count) {
  std::vector<std::jthread> threads;
  for (int first = 0; first < 16; ++first) {
    threads.emplace_back([&config, &start, count, first] {
      for (int i = first; i < count; i += 16) {
        EXPECT_TRUE(put(config, start + std::to_string(10'000 + i), "content"));
      }
    });
  }
}

TEST(TransportStore, ListsPageAfterPage) {
  constexpr int kObjects = 2'500;
  const ObjectStore store;
  const auto config = configFor(store);
  // Every key may be the last of a page, which this store hands out as the token for the next one.
  const std::string folder = "a+b/=c &d;\u00e9'<%2B?#\"&amp;/";
  putMany(config, folder, kObjects);
  ASSERT_TRUE(put(config, "a b/=c &d", "what the prefix does not name"));

  const auto listed = TalvexAPIService::shared().listObjects(config, store.prefix() + folder);
  ASSERT_TRUE(listed) << listed.error().description();
  const auto stored = store.list(store.prefix() + folder);
  ASSERT_EQ(listed->size(), std::size_t{kObjects});
  ASSERT_EQ(stored.size(), std::size_t{kObjects});
  for (std::size_t i = 0; i < stored.size(); ++i) {
    EXPECT_EQ(withoutXmlReferences((*listed)[i].key), stored[i].key);
    EXPECT_EQ("\"" + (*listed)[i].eTag + "\"", stored[i].etag);
  }
  auto stranger = config;
  stranger.secretKey += "x";
  EXPECT_EQ(TalvexAPIService::shared().listObjects(stranger, "").error().code(), 403);
}

const testing::ChildMain kUploadAndMeasure("uploadAndMeasure", [](const auto& arguments) {
  const auto config = configFor(ObjectStore());
  const testing::MemoryGrowth growth;
  if (!uploadFile(config, arguments.at(0), "large")) return 1;
  std::printf("%ld\n", growth.kibibytes());
  return 0;
});

TEST(TransportStore, AGibibyteTakesNoMoreMemoryThanAPart) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP() << "sanitizers keep memory of their own";
  const ObjectStore store;
  const auto file = testing::testDirectory() / "large";
  testing::writeFile(file, randomText(1'000'000));
  std::filesystem::resize_file(file, std::uintmax_t{1} << 30);
  const long growth = std::stol(testing::outputOfChild("uploadAndMeasure", {file.string()}));
  RecordProperty("growthKiB", std::to_string(growth));
  EXPECT_GT(growth, 0);
  EXPECT_LE(growth, 24 * 1024);
  EXPECT_EQ(store.head(store.prefix() + "large")->size, std::uint64_t{1} << 30);
  store.remove(store.prefix() + "large");
}

}  // namespace
}  // namespace orvane
