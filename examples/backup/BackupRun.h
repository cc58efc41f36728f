#pragma once

#include <orvane/bookkeeping/UploadRecord.h>
#include <orvane/transport/S3MultipartUploader.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "Display.h"
#include "EventQueue.h"
#include "Folder.h"

namespace backup {

struct Summary {
  std::size_t uploaded = 0;
  std::size_t alreadyThere = 0;
  std::size_t failed = 0;
  std::size_t left = 0;    ///< Not sent because the run was stopped.
  std::int64_t bytes = 0;  ///< Of the files uploaded.
};

/// Brings the object store up to date with a folder, a few files at a time.
///
/// One thread does everything but the sending: it starts uploads, and what these report comes back
/// to it through a queue of events.
class BackupRun {
 public:
  /// Once `stop` is true, no more uploads begin.
  BackupRun(const orvane::S3Config& config, const std::atomic<bool>& stop);

  /// Files a record for each file and uploads what is new or changed.
  Summary run(const Folder& folder);

 private:
  using Clock = std::chrono::steady_clock;
  using ItemIndex = std::size_t;

  struct Item {
    std::filesystem::path file;
    orvane::UploadRecord record;
  };

  void fileRecords(const std::vector<LocalFile>& files);
  [[nodiscard]] bool isDone() const;
  void startUploads();
  [[nodiscard]] std::optional<ItemIndex> nextItem();
  void start(ItemIndex index);
  void handle(const Event& event);
  void succeed(orvane::UploadRecord& record);
  void fail(ItemIndex index, const orvane::Error& error);
  void announceStop();
  void saveRecords();
  void drawBars();

  const std::atomic<bool>& stop_;
  bool stopAnnounced_ = false;
  const Clock::time_point begun_ = Clock::now();
  Display display_;
  Summary summary_;

  orvane::S3MultipartUploader uploader_;
  const std::shared_ptr<EventQueue> events_ = std::make_shared<EventQueue>();

  std::vector<Item> items_;  ///< What is to be uploaded, in this order.
  std::int64_t bytesToUpload_ = 0;
  ItemIndex next_ = 0;  ///< The first item that was never started.
  std::vector<ItemIndex> underWay_;
  std::multimap<Clock::time_point, ItemIndex> pausing_;  ///< When which item is tried again.

  std::vector<orvane::UploadRecord> changedRecords_;
  Clock::time_point nextSave_ = {};
};

}  // namespace backup
