#include <orvane/bookkeeping/BandwidthStatsStore.h>
#include <orvane/bookkeeping/MultipartUploadStore.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/transport/RetryPolicy.h>

#include "Commands.h"
#include "Display.h"
#include "Folder.h"
#include "Objects.h"
#include "Records.h"
#include "Rules.h"
#include "Setup.h"
#include "Tasks.h"
#include "Transfer.h"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <algorithm>
#include <chrono>
#include <deque>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace backup {
namespace {

using orvane::BandwidthStatsStore;
using orvane::MultipartUploadStore;
using orvane::RetryPolicy;
using orvane::UploadRecord;
using orvane::UploadStatus;
using orvane::UploadStore;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr std::chrono::seconds kBetweenSamples(1);  ///< Of the throughput.

// A large file goes up in several parts at a time and fills a line alone; small ones mostly wait
// for answers, so that more of them fill it.
constexpr std::size_t kLargeAtATime = 2;
constexpr std::size_t kSmallAtATime = 12;

bool isLarge(std::int64_t size) { return size >= orvane::ResumableUploader::partSizeFor(size); }

bool isOf(const std::optional<UploadRecord>& record, const LocalFile& file) {
  return record && record->totalBytes == file.size && record->creationDate == file.modified;
}

/// The record of a file that is to go up. A file that has changed begins a life of its own: no
/// retries, no ETag, tags to be looked for again.
UploadRecord pendingRecord(std::optional<UploadRecord> known, const LocalFile& file) {
  if (!isOf(known, file)) {
    known.emplace(file.name, "media/" + file.name, UploadStatus::pending, 0, file.size);
    known->creationDate = file.modified;
  }
  known->status = UploadStatus::pending;
  known->bytesUploaded = 0;
  return *std::move(known);
}

/// Brings the object store up to date with a folder, a few files at a time.
class Backup {
 public:
  explicit Backup(const orvane::S3Config& config) : config_(config), uploader_(config) {}

  /// Files a record for each file and uploads what is new or changed.
  void run(const Folder& folder);
  void printSummary() const;
  [[nodiscard]] std::size_t failed() const { return failed_; }
  /// Whether the next upload would fail as the last ones did.
  [[nodiscard]] bool isHopeless() const { return unreachable_ || refused_ >= kAtATime; }

 private:
  struct Item {
    std::filesystem::path file;
    UploadRecord record;
    boost::asio::cancellation_signal stop = {};
  };

  void takeUpEarlierRuns(const std::vector<LocalFile>& files);
  void fileRecords(const std::vector<LocalFile>& files);
  Task uploadNextFiles(std::deque<Item*>& row);
  Task upload(Item& item);
  orvane::Async<std::string> transferred(Item& item);
  [[nodiscard]] bool mayRetry(Item& item, const orvane::Error& error, Seconds delay);
  void setStatus(Item& item, UploadStatus status, std::optional<std::string> message = {});
  void succeed(Item& item, const std::string& eTag);
  void forgetCompleted();
  void fail(const std::string& name, const std::string& reason);
  void tick();
  [[nodiscard]] std::int64_t bytesSent() const;
  void measure();
  void drawBar();

  Display display_;
  RecordSaver saver_;
  const orvane::S3Config& config_;
  orvane::ResumableUploader uploader_;

  std::deque<Item> items_;   ///< What is to be uploaded.
  std::deque<Item*> small_;  ///< Those never started, in this order.
  std::deque<Item*> large_;
  std::vector<std::string> completed_;  ///< Large ones whose records may not be saved yet.
  std::int64_t bytesToUpload_ = 0;
  std::size_t uploaded_ = 0;
  std::size_t alreadyThere_ = 0;
  std::size_t failed_ = 0;
  bool unreachable_ = false;  ///< The store was, for all retries of a file.
  std::size_t refused_ = 0;   ///< Uploads since the last one that succeeded.
  bool stopAnnounced_ = false;

  const Clock::time_point begun_ = Clock::now();
  Clock::time_point measured_ = begun_;
  std::int64_t bytesMeasured_ = 0;  ///< Sent by then.
  std::int64_t bytesToCount_ = 0;   ///< Of completed files, not yet in the statistics.
};

void Backup::run(const Folder& folder) {
  for (const auto& [name, reason] : folder.problems) fail(name, reason);
  takeUpEarlierRuns(folder.files);
  fileRecords(folder.files);
  const auto makeTask = [this, count = std::size_t{0}]() mutable {
    return uploadNextFiles(count++ < kLargeAtATime ? large_ : small_);
  };
  runTasks(kLargeAtATime + kSmallAtATime, makeTask, [this] { tick(); });
  display_.clearBar();
  if (bytesToCount_ > 0) measure();
  saver_.save();
  forgetCompleted();
}

/// What earlier runs left under way goes on, unless its file is gone or has changed.
void Backup::takeUpEarlierRuns(const std::vector<LocalFile>& files) {
  for (const auto& state : MultipartUploadStore::shared().allStates()) {
    const auto file = std::ranges::find(files, state.assetId(), &LocalFile::name);
    const auto record = UploadStore::shared().record(state.assetId());
    if (file == files.end() || !isOf(record, *file)) {
      display_.print("given up", state.assetId(), ": an upload of what the file was before");
      giveUp(state, config_);
      continue;
    }
    if (record->status == UploadStatus::completed) {  // That run ended before it forgot the upload.
      MultipartUploadStore::shared().remove(state.assetId());
      continue;
    }
    if (record->status == UploadStatus::failed) {  // Its retries are used up.
      giveUp(state, config_);
      continue;
    }
    display_.print("going on", state.assetId(),
                   ": " + std::to_string(state.completedParts.size()) + " of " +
                       std::to_string(state.totalParts()) + " parts have been sent");
  }
  UploadStore::shared().markAllPendingAsStale();
}

void Backup::fileRecords(const std::vector<LocalFile>& files) {
  for (const LocalFile& file : files) {
    auto known = UploadStore::shared().record(file.name);
    const bool same = isOf(known, file);
    if (same && known->status == UploadStatus::completed) {
      ++alreadyThere_;
    } else if (same && known->status == UploadStatus::failed) {
      fail(file.name,
           "given up after " + std::to_string(known->retryCount) +
               " retries (--retry-all tries again): " + known->errorMessage.value_or(""));
    } else {
      items_.emplace_back(file.path, pendingRecord(std::move(known), file));
      (isLarge(file.size) ? large_ : small_).push_back(&items_.back());
      bytesToUpload_ += file.size;
      saver_.add(items_.back().record);
    }
  }
  saver_.save();
}

Task Backup::uploadNextFiles(std::deque<Item*>& row) {
  while (!row.empty() && !stopRequested() && !isHopeless()) {
    Item& item = *row.front();
    row.pop_front();
    co_await upload(item);
  }
}

Task Backup::upload(Item& item) {
  setStatus(item, UploadStatus::uploading);
  const auto eTag = co_await transferred(item);
  if (eTag) co_return succeed(item, *eTag);
  if (stopRequested()) co_return setStatus(item, UploadStatus::pending);
  const auto reason = explanation(eTag.error());
  if (isRefused(eTag.error())) ++refused_;
  setStatus(item, UploadStatus::failed, reason);
  unreachable_ = unreachable_ || isUnreachable(eTag.error());
  fail(item.record.id(), reason);
}

orvane::Async<std::string> Backup::transferred(Item& item) {
  auto running = transfer(
      uploader_, item.file, item.record,
      {.checkpoint = {},
       .mayRetry = [&](const orvane::Error& error,
                       Seconds delay) { return mayRetry(item, error, delay); },
       .progress = [&](std::int64_t sent, std::int64_t) { item.record.bytesUploaded = sent; }});
  auto stoppable = boost::asio::co_spawn(
      mainLoop(), std::move(running),
      boost::asio::bind_cancellation_slot(item.stop.slot(), boost::asio::use_awaitable));
  co_return co_await std::move(stoppable);
}

/// Whether the file's retries are not used up. A store that cannot be reached costs none.
bool Backup::mayRetry(Item& item, const orvane::Error& error, Seconds delay) {
  if (stopRequested() || item.record.retryCount >= RetryPolicy::maxLifetimeRetries) return false;
  if (!isUnreachable(error)) ++item.record.retryCount;
  const auto reason = explanation(error);
  item.record.status = UploadStatus::retrying;
  item.record.errorMessage = reason;
  saver_.add(item.record);
  display_.print("retrying", item.record.id(), " in " + decimal(delay.count()) + " s: " + reason,
                 std::cerr);
  return true;
}

void Backup::setStatus(Item& item, UploadStatus status, std::optional<std::string> message) {
  item.record.status = status;
  item.record.bytesUploaded = status == UploadStatus::completed ? item.record.totalBytes : 0;
  item.record.errorMessage = std::move(message);
  saver_.add(item.record);
}

void Backup::succeed(Item& item, const std::string& eTag) {
  if (!eTag.empty()) item.record.eTag = eTag;
  setStatus(item, UploadStatus::completed);
  ++uploaded_;
  refused_ = 0;
  bytesToCount_ += item.record.totalBytes;
  if (isLarge(item.record.totalBytes)) completed_.push_back(item.record.id());
  if (display_.showsBar()) return;
  display_.print("uploaded", item.record.id(), ", " + byteText(item.record.totalBytes));
}

/// How far uploads had come, which a killed run needs until their records say that they are done.
void Backup::forgetCompleted() {
  for (const auto& id : std::exchange(completed_, {})) MultipartUploadStore::shared().remove(id);
}

void Backup::fail(const std::string& name, const std::string& reason) {
  ++failed_;
  display_.print("failed", name, ": " + reason, std::cerr);
}

void Backup::tick() {
  if (stopRequested() && !std::exchange(stopAnnounced_, true)) {
    display_.print("stopping", "the uploads under way", "; the next run goes on with them");
    for (Item& item : items_) item.stop.emit(boost::asio::cancellation_type::terminal);
  }
  if (saver_.saveIfDue()) forgetCompleted();
  if (Clock::now() - measured_ >= kBetweenSamples) measure();
  drawBar();
}

std::int64_t Backup::bytesSent() const {
  std::int64_t sent = 0;
  for (const Item& item : items_) sent += item.record.bytesUploaded;
  return sent;
}

void Backup::measure() {
  auto& statistics = BandwidthStatsStore::shared();
  statistics.addCompletedBytes(std::exchange(bytesToCount_, 0));
  const std::int64_t sent = bytesSent();
  // A large file that is begun again takes bytes back.
  const auto more = std::max<std::int64_t>(sent - bytesMeasured_, 0);
  statistics.addSample(static_cast<double>(more) / Seconds(Clock::now() - measured_).count());
  bytesMeasured_ = sent;
  measured_ = Clock::now();
}

void Backup::drawBar() {
  const auto sent = static_cast<double>(bytesSent());
  const double perSecond = sent / Seconds(Clock::now() - begun_).count();
  display_.drawBar(sent / static_cast<double>(std::max<std::int64_t>(bytesToUpload_, 1)),
                   std::to_string(uploaded_) + " of " + countText(items_.size(), "file") + ", " +
                       byteText(static_cast<std::int64_t>(perSecond)) + "/s");
}

void Backup::printSummary() const {
  const auto left = std::ranges::count_if(items_, [](const Item& item) {
    return item.record.status != UploadStatus::completed &&
           item.record.status != UploadStatus::failed;
  });
  std::cout << "Done in " << decimal(Seconds(Clock::now() - begun_).count())
            << " s: " << countText(uploaded_, "file") << " uploaded (" << byteText(bytesSent())
            << "), " << alreadyThere_ << " already there, " << failed_ << " failed.\n";
  if (left == 0) return;
  const auto files = countText(left, "file") + " left for the next run.\n";
  if (stopRequested()) {
    std::cout << "Stopped: " << files;
  } else {
    std::cerr << "Given up, since every file would fail: " << files;
  }
}

/// The endpoint's host and, where it names one, port.
std::string serverOf(const orvane::S3Config& config) {
  // The endpoint's own text may have slashes around it that do not count.
  const auto url = config.url("").value();
  const std::string port(url.port());
  return std::string(url.host()) + (port.empty() ? "" : ":" + port);
}

}  // namespace

int runCommand(const Path& folder, const orvane::S3Config& config, bool retryAll) {
  requireFolder(folder);
  lockState();
  bindState(folder, config);
  listenForStop();
  std::cout << "Backing up " << printable(folder.string()) << " to bucket "
            << printable(config.bucket) << " at " << printable(serverOf(config)) << '\n'
            << std::flush;
  // What has failed in earlier runs is tried again until its retries are used up.
  auto& store = UploadStore::shared();
  retryAll ? store.resetFailed() : store.autoResetFailed(RetryPolicy::maxLifetimeRetries);

  Backup backup(config);
  backup.run(listFolder(folder, orvane::HostApplication::dataDirectory().value_or("")));
  if (!stopRequested() && !backup.isHopeless()) recordETags(config);
  backup.printSummary();
  if (stopRequested()) return kInterrupted;
  return backup.failed() > 0 ? kSomethingFailed : kSuccess;
}

}  // namespace backup
