#pragma once

#include <orvane/Error.h>
#include <orvane/tagging/BackfillProgress.h>
#include <orvane/tagging/TagWithConfidence.h>
#include <orvane/tagging/TagWithCount.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace orvane {

namespace platform {
class Database;
class DatabaseQueue;
}  // namespace platform

namespace tagging {
class TagBatch;
}

/// The tags of each asset; an asset without tags is not in it.
using TagsByAsset = std::unordered_map<std::string, std::vector<TagWithConfidence>>;

/// Every tag of every asset, per device that found it, with the state of the exchange with other
/// devices and of the host's backfill: the file "tag_database.sqlite" in the documents folder.
///
/// Until `initialize` has opened it, writes do nothing and reads find nothing. Any thread may call;
/// operations run one at a time, and each blocks until it is done. A write is on the disk when it
/// returns; one that fails has changed nothing. Another process may read meanwhile; for its writes
/// an operation waits up to three seconds and then fails with SQLITE_BUSY (5). A child that was
/// forked without exec must not use it.
///
/// Errors have the domain `Error::kDatabase` with SQLite's extended code. Texts are stored as the
/// bytes they are. Time stamps are milliseconds since 1970-01-01T00:00:00Z.
///
///     auto& database = TagDatabase::shared();
///     if (auto opened = database.initialize(); !opened) return report(opened.error());
///     auto written = database.upsertTags(assetId, tags, DeviceUUID::shared().uuid());
class TagDatabase {
 public:
  /// The one database of the process, not yet open.
  [[nodiscard]] static TagDatabase& shared();

  TagDatabase(const TagDatabase&) = delete;
  TagDatabase& operator=(const TagDatabase&) = delete;

  /// Opens the file and brings it to the present layout; creates it, and its folder for this user
  /// alone, if they do not exist. A second call opens the file anew in place of the first.
  ///
  /// When the folder or the file cannot be made or opened, or is no database, the store stays as it
  /// was; without any documents folder that is the POSIX error ENOENT. When a step to the present
  /// layout fails, the store is open on what the steps before it have made. A file of which only
  /// later pages are damaged opens, and may be written to.
  [[nodiscard]] Result<void> initialize();

  /// Stores one tag of an asset as found by a device, in place of its earlier row. A confidence
  /// that is not a number is stored as 0.
  [[nodiscard]] Result<void> upsertTag(std::string_view assetId, std::string_view tag,
                                       double confidence, std::string_view deviceUUID);

  /// The same for several tags, all or none. Of equal tags the last one stays. Tags of the asset
  /// that are not named stay as well: an image that has changed keeps what it showed before.
  [[nodiscard]] Result<void> upsertTags(std::string_view assetId,
                                        const std::vector<TagWithConfidence>& tags,
                                        std::string_view deviceUUID);

  /// The tags of an asset, once per device that found them, in no defined order.
  [[nodiscard]] Result<std::vector<std::string>> tagsForAsset(std::string_view assetId) const;
  [[nodiscard]] Result<std::vector<TagWithConfidence>> getTagsForAsset(
      std::string_view assetId) const;

  /// Everything that a device has found.
  [[nodiscard]] Result<TagsByAsset> exportAllTagsForDevice(std::string_view deviceUUID) const;

  /// Assets with a tag that contains `query`, each once, in no defined order. Matches as SQLite's
  /// LIKE does: the case of ASCII letters does not count, "%" and "_" stand for any text and any
  /// character, a NUL ends the pattern.
  [[nodiscard]] Result<std::vector<std::string>> searchAssetsByTag(std::string_view query) const;

  /// The tags with the most rows, the most frequent first; all of them if `limit` is negative.
  [[nodiscard]] Result<std::vector<TagWithCount>> topTags(std::int64_t limit) const;

  /// Removes the tags of all devices; what is known of the exchange with them stays.
  [[nodiscard]] Result<void> deleteAllTags();

  /// Changes the ETag of a device that is known; nothing otherwise.
  [[nodiscard]] Result<void> updateRemoteETag(std::string_view deviceUUID, std::string_view eTag);
  /// Changes the ETag of a device, and nothing else that is known of it.
  [[nodiscard]] Result<void> upsertRemoteETag(std::string_view deviceUUID, std::string_view eTag);
  /// Nothing for a device that is not known; empty when no ETag of it is.
  [[nodiscard]] Result<std::optional<std::string>> getRemoteETag(std::string_view deviceUUID) const;

  /// The newest time stamp applied from a device; 0 when there is none.
  [[nodiscard]] Result<std::int64_t> getLastSeenTimestamp(std::string_view deviceUUID) const;
  /// Stores it and forgets the device's ETag.
  [[nodiscard]] Result<void> updateLastSeenTimestamp(std::string_view deviceUUID,
                                                     std::int64_t timestamp);

  /// Begins a backfill of `total` assets, in place of any other.
  [[nodiscard]] Result<void> initializeBackfill(std::int64_t total);
  /// These three change a backfill that was begun, and do nothing otherwise.
  [[nodiscard]] Result<void> updateBackfillProgress(std::int64_t processed);
  [[nodiscard]] Result<void> completeBackfill();
  [[nodiscard]] Result<void> resetBackfillCompleted();
  /// Forgets the backfill.
  [[nodiscard]] Result<void> deleteBackfillProgress();
  /// Nothing when none was begun.
  [[nodiscard]] Result<std::optional<BackfillProgress>> getBackfillProgress() const;

 private:
  friend class tagging::TagBatch;  ///< Writes many tags at a time, each as `upsertTag` does.

  TagDatabase() = default;
  ~TagDatabase() = default;

  /// The open database, or null. Its users keep it while a new one takes its place.
  [[nodiscard]] std::shared_ptr<platform::DatabaseQueue> queue() const;

  /// What `upsertTag` does, as part of a write.
  [[nodiscard]] static Result<void> insertTag(platform::Database& database,
                                              std::string_view assetId, std::string_view tag,
                                              double confidence, std::string_view deviceUUID);

  mutable std::mutex lock_;  ///< Guards `dbQueue_`.
  std::shared_ptr<platform::DatabaseQueue> dbQueue_;
  std::string dbPath_ = "tag_database.sqlite";
};

}  // namespace orvane
