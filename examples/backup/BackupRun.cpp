#include "BackupRun.h"

#include <orvane/bookkeeping/UploadStore.h>

#include <algorithm>
#include <string>
#include <utility>

#include "Rules.h"

namespace backup {
namespace {

using orvane::Error;
using orvane::Result;
using orvane::UploadRecord;
using orvane::UploadStatus;
using orvane::UploadStore;

constexpr auto kLongestWait = 100ms;
constexpr auto kBetweenSaves = 250ms;

bool isAlreadyThere(const std::optional<UploadRecord>& record, const LocalFile& file) {
  return record && record->status == UploadStatus::completed && record->totalBytes == file.size &&
         record->creationDate == file.modified;
}

/// The record of a file that is to go up; what else is known of the file stays in it.
UploadRecord pendingRecord(std::optional<UploadRecord> known, const LocalFile& file) {
  UploadRecord record = std::move(known).value_or(
      UploadRecord(file.name, "media/" + file.name, UploadStatus::pending, 0, file.size));
  record.status = UploadStatus::pending;
  record.bytesUploaded = 0;
  record.totalBytes = file.size;
  record.creationDate = file.modified;
  record.errorMessage.reset();
  record.retryCount = 0;
  return record;
}

}  // namespace

BackupRun::BackupRun(const orvane::S3Config& config, const std::atomic<bool>& stop)
    : stop_(stop), uploader_(config) {}

Summary BackupRun::run(const Folder& folder) {
  for (const auto& [name, reason] : folder.problems) {
    display_.print("failed", name, ": " + reason);
  }
  summary_.failed = folder.problems.size();
  fileRecords(folder.files);
  while (!isDone()) {
    startUploads();
    if (stop_) announceStop();
    if (Clock::now() >= nextSave_) saveRecords();
    if (display_.isDue()) drawBars();
    for (const Event& event : events_->take(kLongestWait)) handle(event);
  }
  display_.clearBars();
  saveRecords();
  summary_.left = items_.size() - next_ + pausing_.size();
  return summary_;
}

void BackupRun::fileRecords(const std::vector<LocalFile>& files) {
  UploadStore& store = UploadStore::shared();
  store.markAllPendingAsStale();  // What a killed run left under way.
  for (const LocalFile& file : files) {
    auto known = store.record(file.name);
    if (isAlreadyThere(known, file)) {
      ++summary_.alreadyThere;
      continue;
    }
    items_.push_back({file.path, pendingRecord(std::move(known), file)});
    bytesToUpload_ += file.size;
    changedRecords_.push_back(items_.back().record);
  }
  saveRecords();
}

bool BackupRun::isDone() const {
  const bool nothingToStart = next_ == items_.size() && pausing_.empty();
  return underWay_.empty() && (nothingToStart || stop_);
}

void BackupRun::startUploads() {
  while (underWay_.size() < kUploadsAtATime && !stop_) {
    const auto index = nextItem();
    if (!index) return;
    start(*index);
  }
}

std::optional<BackupRun::ItemIndex> BackupRun::nextItem() {
  if (!pausing_.empty() && pausing_.begin()->first <= Clock::now()) {
    return pausing_.extract(pausing_.begin()).mapped();
  }
  if (next_ < items_.size()) return next_++;
  return std::nullopt;
}

void BackupRun::start(ItemIndex index) {
  auto& [file, record] = items_[index];
  underWay_.push_back(index);
  record.status = record.retryCount == 0 ? UploadStatus::uploading : UploadStatus::retrying;
  record.bytesUploaded = 0;
  changedRecords_.push_back(record);
  // The callbacks run on threads of the engine; holding the queue, they cannot outlive it.
  uploader_.upload(
      file, record.filename(), contentTypeOf(file),
      [events = events_, index](std::int64_t sent, std::int64_t) {
        events->push({.item = index, .bytesSent = sent});
      },
      [events = events_, index](Result<void> outcome) {
        events->push({.item = index, .outcome = std::move(outcome)});
      });
}

void BackupRun::handle(const Event& event) {
  UploadRecord& record = items_[event.item].record;
  if (!event.outcome) {
    record.bytesUploaded = event.bytesSent;
    return;
  }
  std::erase(underWay_, event.item);
  if (*event.outcome) {
    succeed(record);
  } else {
    fail(event.item, event.outcome->error());
  }
  changedRecords_.push_back(record);
}

void BackupRun::succeed(UploadRecord& record) {
  record.status = UploadStatus::completed;
  record.bytesUploaded = record.totalBytes;
  record.errorMessage.reset();
  ++summary_.uploaded;
  summary_.bytes += record.totalBytes;
  if (display_.showsBars()) return;
  display_.print("uploaded", record.id(), ", " + byteText(record.totalBytes));
}

void BackupRun::fail(ItemIndex index, const Error& error) {
  UploadRecord& record = items_[index].record;
  record.errorMessage = error.description();
  const auto retries = static_cast<std::size_t>(record.retryCount);
  if (isTransient(error) && retries < kRetryPauses.size()) {
    record.status = UploadStatus::retrying;
    ++record.retryCount;
    const auto pause = kRetryPauses.at(retries);
    pausing_.emplace(Clock::now() + pause, index);
    display_.print("retrying", record.id(),
                   " in " + std::to_string(pause.count()) + " s: " + explanation(error));
  } else {
    record.status = UploadStatus::failed;
    ++summary_.failed;
    display_.print("failed", record.id(), ": " + explanation(error));
  }
}

void BackupRun::announceStop() {
  if (std::exchange(stopAnnounced_, true)) return;
  display_.print("stopping", "when the uploads under way are done", "; again: at once");
}

/// The store writes its whole file at each change, so changes are gathered for a moment; with very
/// many records for longer, since saving may take a tenth of the time. A killed run forgets that
/// moment at most: what went up in it goes up once more.
void BackupRun::saveRecords() {
  if (changedRecords_.empty()) return;
  const auto begun = Clock::now();
  UploadStore& store = UploadStore::shared();
  store.upsertBatch(std::exchange(changedRecords_, {}));
  // The store works in order: its answer means that the change is in the file.
  static_cast<void>(store.completedCount());
  const auto saved = Clock::now();
  nextSave_ = saved + std::max<Clock::duration>(kBetweenSaves, 9 * (saved - begun));
}

void BackupRun::drawBars() {
  std::vector<Display::Bar> bars;
  std::int64_t sent = summary_.bytes;
  for (const ItemIndex index : underWay_) {
    const UploadRecord& record = items_[index].record;
    bars.push_back({record.bytesUploaded, record.progress(), printable(record.id())});
    sent += record.bytesUploaded;
  }
  const auto done = next_ - underWay_.size() - pausing_.size();
  const double seconds = std::chrono::duration<double>(Clock::now() - begun_).count();
  const double fraction =
      bytesToUpload_ > 0 ? static_cast<double>(sent) / static_cast<double>(bytesToUpload_) : 0;
  bars.push_back({sent, fraction,
                  std::to_string(done) + " of " + std::to_string(items_.size()) + " files, " +
                      byteText(static_cast<std::int64_t>(static_cast<double>(sent) / seconds)) +
                      "/s"});
  display_.draw(bars);
}

}  // namespace backup
