// The transport against a real object store that verifies signatures and payload hashes.

#include <orvane/platform/files/FileVersion.h>
#include <orvane/transport/ObjectDownloader.h>
#include <orvane/transport/ResumableUploader.h>
#include <orvane/transport/S3MultipartUploader.h>
#include <orvane/transport/S3Uploader.h>
#include <orvane/transport/TalvexAPIService.h>
#include <orvane/transport/XmlText.h>

#include "support/Test.h"

namespace orvane {
namespace {

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

constexpr std::int64_t kPart = std::int64_t{8} << 20;
constexpr std::int64_t kParts = 12;
constexpr std::int64_t kFileSize = (kParts - 1) * kPart + 12'345;
constexpr std::int64_t kPartsInFlight = 3;

fs::path fileNamed(const char* name) { return testDirectory() / name; }

void save(const UploadCheckpoint& reached) {
  std::ofstream file(fileNamed("checkpoint.new"));
  file << reached.uploadId << '\n';
  for (const auto& [number, eTag] : reached.parts) file << number << ' ' << eTag << '\n';
  file.close();
  fs::rename(fileNamed("checkpoint.new"), fileNamed("checkpoint"));
}

std::optional<UploadCheckpoint> saved() {
  std::ifstream file(fileNamed("checkpoint"));
  const auto version = platform::versionOf(fileNamed("file")).value();
  UploadCheckpoint checkpoint{
      .uploadId = {}, .fileSize = version.size, .modified = version.modified, .parts = {}};
  if (!std::getline(file, checkpoint.uploadId)) return std::nullopt;
  std::int64_t number = 0;
  for (std::string eTag; file >> number >> eTag;) checkpoint.parts.emplace(number, eTag);
  return checkpoint;
}

/// Uploads the file from where the last one left it. Says how many parts are there, after each.
const ChildMain kUpload("resumable-upload", [](const std::vector<std::string>& arguments) {
  auto config = configFor(ObjectStore());
  config.prefix = arguments.at(0);
  ResumableUploader uploader(config, {.partsInFlight = kPartsInFlight});
  const auto eTag =
      testing::run(uploader.upload(fileNamed("file"), "k", "image/jpeg", saved(),
                                   {.checkpoint = [](const UploadCheckpoint& reached) {
                                     save(reached);
                                     std::cout << reached.parts.size() << '\n' << std::flush;
                                   }}));
  if (!eTag) std::cout << eTag.error().description() << '\n';
  return eTag ? 0 : 1;
});

/// Downloads it. Says how many ranges are on the disk, after each.
const ChildMain kDownload("resumable-download", [](const std::vector<std::string>& arguments) {
  auto config = configFor(ObjectStore());
  config.prefix = arguments.at(0);
  ObjectDownloader downloader(config, {.rangesInFlight = kPartsInFlight});
  const auto object =
      testing::run(downloader.download("k", fileNamed("copy"), ExistingFile::keep,
                                       {.progress = [](std::int64_t received, std::int64_t) {
                                         std::cout << (received + kPart - 1) / kPart << '\n'
                                                   << std::flush;
                                       }}));
  if (!object) std::cout << object.error().description() << '\n';
  return object && (object->isChecked || object->wasThere) ? 0 : 1;
});

/// The next figure that the child says; `otherwise` when it has ended.
std::int64_t nextFigure(ChildProcess& child, std::int64_t otherwise) {
  const auto line = child.readLine();
  if (!line) return otherwise;
  if (line->find_first_not_of("0123456789") != std::string::npos) throw std::runtime_error(*line);
  return std::stoll(*line);
}

/// Runs the child again and again, killed at random, until it has counted every part; none that it
/// has counted may be missing the next time. Then lets it come to its end.
int killUntilDone(const std::string& childMain, const ObjectStore& store, std::mt19937& random) {
  int kills = 0;
  for (std::int64_t parts = 0; parts < kParts; ++kills) {
    auto child = ChildProcess::run(childMain, {store.prefix()});
    const auto found = nextFigure(child, -1);
    EXPECT_GE(found, parts) << "after kill " << kills;
    if (found < parts) return kills;
    parts = found;
    for (auto more = random() % 3; more > 0; --more) parts = nextFigure(child, parts);
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 40));
    child.kill(SIGKILL);
    for (auto last = nextFigure(child, -1); last >= 0; last = nextFigure(child, -1)) parts = last;
  }
  EXPECT_EQ(ChildProcess::run(childMain, {store.prefix()}).wait(), 0);
  return kills;
}

TEST(TransportStore, AKillCostsAtMostThePartsInFlight) {
  const ObjectStore store;
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::string content(kFileSize, '\0');
  for (auto& c : content) c = static_cast<char>(random());
  writeFile(fileNamed("file"), content);

  EXPECT_GE(killUntilDone("resumable-upload", store, random), 4);
  EXPECT_TRUE(store.get(store.prefix() + "k") == content);
  EXPECT_FALSE(store.hasUnfinishedUploads());

  EXPECT_GE(killUntilDone("resumable-download", store, random), 2);
  EXPECT_TRUE(readFile(fileNamed("copy")) == content);
  EXPECT_EQ(fs::last_write_time(fileNamed("copy")), fs::last_write_time(fileNamed("file")));
}

}  // namespace
}  // namespace orvane
