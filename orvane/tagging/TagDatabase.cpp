#include <orvane/tagging/TagDatabase.h>

#include <orvane/platform/database/DatabaseQueue.h>
#include <orvane/platform/files/FolderOperations.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/tagging/internal/TagDatabaseSchema.h>
#include <orvane/tagging/internal/TagStatements.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <utility>

namespace orvane {
namespace {

namespace statements = tagging::statements;
using platform::Database;
using platform::DatabaseArguments;
using platform::DatabaseQueue;
using platform::DatabaseRow;
using SharedQueue = std::shared_ptr<DatabaseQueue>;

constexpr std::string_view kSource = "ml_v1";

double nowInMilliseconds() {
  const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
  return now.count() * 1000;
}

std::int64_t wholeNowInMilliseconds() { return static_cast<std::int64_t>(nowInMilliseconds()); }

/// With SQLite's default, synchronous=FULL, every commit is on the disk when it is reported.
Result<void> prepareConnection(Database& database) {
  if (auto done = database.execute("PRAGMA journal_mode=WAL"); !done) return done;
  return database.execute("PRAGMA busy_timeout=3000");
}

Result<SharedQueue> open(const std::string& name) {
  const auto folder = HostApplication::documentsDirectory();
  if (!folder) return std::unexpected(Error(Error::kPosix, ENOENT, "There is no documents folder"));
  // Without the folder, opening the file says what is wrong.
  static_cast<void>(platform::createPrivateFolders(*folder));
  return DatabaseQueue::open(*folder / name, prepareConnection);
}

/// One statement in one write; nothing without a queue.
Result<void> write(const SharedQueue& queue, std::string_view statement,
                   DatabaseArguments arguments = {}) {
  if (!queue) return {};
  return queue->write([&](Database& database) { return database.execute(statement, arguments); });
}

/// What `block` reads; `T()` without a queue.
template <class Block, class T = std::invoke_result_t<Block&, Database&>>
T read(const SharedQueue& queue, Block&& block) {
  if (!queue) return typename T::value_type();
  return queue->read(block);
}

std::string firstText(const DatabaseRow& row) { return std::string(row.text(0)); }

TagWithConfidence tagAndConfidence(const DatabaseRow& row) {
  return {std::string(row.text(0)), row.real(1)};
}

/// Puts rows of asset, tag and confidence into a map. The rows of an asset mostly follow each
/// other: each run of them is collected first, so that the map is made once, at its full size.
class TagCollector {
 public:
  void operator()(const DatabaseRow& row) {
    if (const auto asset = row.text(0); runs_.empty() || asset != runs_.back().first) {
      runs_.emplace_back(asset, Tags()).second.reserve(kUsualTags);
    }
    runs_.back().second.emplace_back(std::string(row.text(1)), row.real(2));
  }

  TagsByAsset take() {
    TagsByAsset all;
    // With half of its places empty the map is made in three quarters of the time.
    all.reserve(2 * runs_.size());
    for (auto& [asset, tags] : runs_) {
      const auto [place, isNew] = all.try_emplace(std::move(asset), std::move(tags));
      if (!isNew) std::ranges::move(tags, std::back_inserter(place->second));
    }
    return all;
  }

 private:
  using Tags = std::vector<TagWithConfidence>;
  static constexpr std::size_t kUsualTags = 5;

  std::vector<std::pair<std::string, Tags>> runs_;
};

}  // namespace

TagDatabase& TagDatabase::shared() {
  // Never destroyed: threads may still call it while the process exits.
  static auto& instance = *new TagDatabase;
  return instance;
}

Result<void> TagDatabase::initialize() {
  auto opened = open(dbPath_);
  if (!opened) return std::unexpected(std::move(opened).error());
  {
    const std::lock_guard guard(lock_);
    dbQueue_ = *opened;
  }
  return tagging::tagDatabaseMigrator().migrate(**opened);
}

SharedQueue TagDatabase::queue() const {
  const std::lock_guard guard(lock_);
  return dbQueue_;
}

Result<void> TagDatabase::upsertTag(std::string_view assetId, std::string_view tag,
                                    double confidence, std::string_view deviceUUID) {
  const auto opened = queue();
  if (!opened) return {};
  return opened->write([&](Database& database) {
    return insertTag(database, assetId, tag, confidence, deviceUUID);
  });
}

Result<void> TagDatabase::insertTag(Database& database, std::string_view assetId,
                                    std::string_view tag, double confidence,
                                    std::string_view deviceUUID) {
  return database.execute(statements::kUpsertTag,
                          {assetId, tag, confidence, kSource, nowInMilliseconds(), deviceUUID});
}

Result<void> TagDatabase::upsertTags(std::string_view assetId,
                                     const std::vector<TagWithConfidence>& tags,
                                     std::string_view deviceUUID) {
  const auto opened = queue();
  if (!opened) return {};
  return opened->write([&](Database& database) -> Result<void> {
    const auto now = wholeNowInMilliseconds();
    for (const auto& [tag, confidence] : tags) {
      auto done = database.execute(statements::kUpsertTag,
                                   {assetId, tag, confidence, kSource, now, deviceUUID});
      if (!done) return done;
    }
    return {};
  });
}

Result<std::vector<std::string>> TagDatabase::tagsForAsset(std::string_view assetId) const {
  return read(queue(), [&](Database& database) {
    return database.fetchAll(statements::kTagsForAsset, {assetId}, {"tag"}, firstText);
  });
}

Result<std::vector<TagWithConfidence>> TagDatabase::getTagsForAsset(
    std::string_view assetId) const {
  return read(queue(), [&](Database& database) {
    return database.fetchAll(statements::kGetTagsForAsset, {assetId}, {"tag", "confidence"},
                             tagAndConfidence);
  });
}

Result<TagsByAsset> TagDatabase::exportAllTagsForDevice(std::string_view deviceUUID) const {
  return read(queue(), [&](Database& database) -> Result<TagsByAsset> {
    TagCollector tags;
    auto done = database.forEachRow(statements::kExportAllTagsForDevice, {deviceUUID},
                                    {"asset_id", "tag", "confidence"}, tags);
    if (!done) return std::unexpected(std::move(done).error());
    return tags.take();
  });
}

Result<std::vector<std::string>> TagDatabase::searchAssetsByTag(std::string_view query) const {
  std::string pattern = "%";
  pattern.append(query).append("%");
  return read(queue(), [&](Database& database) {
    return database.fetchAll(statements::kSearchAssetsByTag, {pattern}, {"asset_id"}, firstText);
  });
}

Result<std::vector<TagWithCount>> TagDatabase::topTags(std::int64_t limit) const {
  return read(queue(), [&](Database& database) {
    return database.fetchAll(statements::kTopTags, {limit}, {"tag", "freq"},
                             [](const DatabaseRow& row) {
                               return TagWithCount{std::string(row.text(0)), row.integer(1)};
                             });
  });
}

Result<void> TagDatabase::deleteAllTags() { return write(queue(), statements::kDeleteAllTags); }

Result<void> TagDatabase::updateRemoteETag(std::string_view deviceUUID, std::string_view eTag) {
  return write(queue(), statements::kUpdateRemoteETag, {eTag, deviceUUID});
}

Result<void> TagDatabase::upsertRemoteETag(std::string_view deviceUUID, std::string_view eTag) {
  return write(queue(), statements::kUpsertRemoteETag, {deviceUUID, eTag});
}

Result<std::optional<std::string>> TagDatabase::getRemoteETag(std::string_view deviceUUID) const {
  return read(queue(), [&](Database& database) {
    return database.fetchOne(statements::kGetRemoteETag, {deviceUUID}, {"remote_etag"}, firstText);
  });
}

Result<std::int64_t> TagDatabase::getLastSeenTimestamp(std::string_view deviceUUID) const {
  auto stored = read(queue(), [&](Database& database) {
    return database.fetchOne(statements::kGetLastSeenTimestamp, {deviceUUID}, {"last_seen_ts"},
                             [](const DatabaseRow& row) { return row.integer(0); });
  });
  if (!stored) return std::unexpected(std::move(stored).error());
  return stored->value_or(0);
}

Result<void> TagDatabase::updateLastSeenTimestamp(std::string_view deviceUUID,
                                                  std::int64_t timestamp) {
  return write(queue(), statements::kUpdateLastSeenTimestamp,
               {deviceUUID, wholeNowInMilliseconds(), timestamp});
}

Result<void> TagDatabase::initializeBackfill(std::int64_t total) {
  constexpr std::int64_t kNone = 0;
  return write(queue(), statements::kInitializeBackfill,
               {total, kNone, kNone, wholeNowInMilliseconds()});
}

Result<void> TagDatabase::updateBackfillProgress(std::int64_t processed) {
  return write(queue(), statements::kUpdateBackfillProgress, {processed});
}

Result<void> TagDatabase::completeBackfill() {
  return write(queue(), statements::kCompleteBackfill);
}

Result<void> TagDatabase::resetBackfillCompleted() {
  return write(queue(), statements::kResetBackfillCompleted);
}

Result<void> TagDatabase::deleteBackfillProgress() {
  return write(queue(), statements::kDeleteBackfillProgress);
}

Result<std::optional<BackfillProgress>> TagDatabase::getBackfillProgress() const {
  return read(queue(), [&](Database& database) {
    return database.fetchOne(statements::kGetBackfillProgress, {},
                             {"total", "processed", "completed"}, [](const DatabaseRow& row) {
                               return BackfillProgress{row.integer(0), row.integer(1),
                                                       row.integer(2)};
                             });
  });
}

}  // namespace orvane
