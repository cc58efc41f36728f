// Transfers that are killed and go on, against a real object store.

#include <orvane/platform/files/FileVersion.h>
#include <orvane/transport/ObjectDownloader.h>
#include <orvane/transport/ResumableUploader.h>

#include "support/ObjectStore.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/Test.h"

#include <fstream>

namespace orvane {
namespace {

using testing::configFor;
using testing::ObjectStore;

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

TEST(ResumableTransferStore, AKillCostsAtMostThePartsInFlight) {
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
