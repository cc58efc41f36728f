#pragma once

#include <orvane/bookkeeping/UploadRecord.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// Remembers the upload record of every asset across restarts of the process.
///
/// A map from asset identifier to record, kept in memory and in the file "upload_records_v1.json"
/// of the application-support folder. Changes return at once and are made in the order of the
/// calls; each one rewrites the file as a whole, so that after a crash or a power cut it holds the
/// state before or after a change. A normal exit of the process first finishes the changes queued;
/// a change that is made later, while static objects are destroyed, or for which no thread can be
/// started, is written by its caller.
///
/// Nothing reports a failure. A file that is missing or has any unreadable part makes an empty
/// store; what could not be decoded is kept beside it, as "upload_records_v1.json.undecodable",
/// when the next change replaces it, and is not replaced where that fails. A text that is not UTF-8
/// is written with U+FFFD in place of what is wrong, and read so by the next process; of two
/// identifiers that only differ there, it finds one. As long as a change cannot be written (a full
/// disk, a date that is not finite in any record), it and those after it are made in memory only.
/// Without an application-support folder all are.
///
/// Threads: any thread may call anything. An operation that reads waits for the changes queued
/// before it and sees them. What is returned is a copy.
///
/// Processes: one at a time should use the store. A second one does not see the changes of the
/// first and overwrites them with its own map; the file stays whole. A child that was forked after
/// the first use must not use the store; it may exec, and exit as it likes.
///
///     auto& store = UploadStore::shared();
///     store.upsert(record);
///     auto same = store.record(record.id());
class UploadStore {
 public:
  /// The one store of the process. The first call reads the file and blocks meanwhile.
  [[nodiscard]] static UploadStore& shared();

  UploadStore(const UploadStore&) = delete;
  UploadStore& operator=(const UploadStore&) = delete;

  /// The record filed under an asset identifier. Blocks.
  [[nodiscard]] std::optional<UploadRecord> record(std::string_view assetId);

  /// Every record, in no particular order. Blocks.
  [[nodiscard]] std::vector<UploadRecord> allRecords();

  /// Files `record` under its `id`, in place of an earlier one as a whole. Queued.
  void upsert(UploadRecord record);

  /// Files all of `batch`, of those with the same `id` the last one, and writes once. Queued.
  void upsertBatch(std::vector<UploadRecord> batch);

  /// How many records are `completed`. Blocks.
  [[nodiscard]] std::size_t completedCount();

  /// The records that are `failed`, in no particular order. Blocks.
  [[nodiscard]] std::vector<UploadRecord> failedRecords();

  /// How many records are `retrying`. Blocks.
  [[nodiscard]] std::size_t retryingCount();

  /// How many records are `excluded`. Blocks.
  [[nodiscard]] std::size_t excludedCount();

  /// Makes every `failed` record `pending`, without error message and with no retries. Queued.
  void resetFailed();

  /// Makes every `failed` record with fewer than `maxRetries` retries `pending`, without error
  /// message; its retries stay counted. Queued.
  void autoResetFailed(std::int64_t maxRetries);

  /// Makes the record filed under `assetId` `excluded`, without error message. Does nothing, not
  /// even write, when there is none. Queued.
  void markExcluded(std::string assetId);

  /// Sets the `tagsVersion` of every record to 0. Queued.
  void resetTagsVersion();

  /// Makes every record that is `uploading` or `retrying` `pending`. Queued.
  void markAllPendingAsStale();

  /// Removes every record; the file then holds an empty map. Queued.
  void clearAll();

  /// Removes every record and deletes the file. Blocks.
  void resetForTesting();

 private:
  struct Implementation;

  UploadStore();
  ~UploadStore();

  [[nodiscard]] std::size_t countOf(UploadStatus status);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace orvane
