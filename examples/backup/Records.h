#pragma once

#include <orvane/bookkeeping/UploadRecord.h>

#include <chrono>
#include <utility>
#include <vector>

namespace backup {

/// Saves records that change often.
///
/// The store writes its whole file at each change, so changes are gathered for a moment; with very
/// many records for longer, since saving may take a tenth of the time. A killed run forgets that
/// moment at most: what was done in it is done once more.
class RecordSaver {
 public:
  void add(orvane::UploadRecord record) { changed_.push_back(std::move(record)); }

  /// Saves what has changed if the last time was long enough ago; says whether it did.
  bool saveIfDue();
  /// Returns when every change is in the store's file.
  void save();

 private:
  using Clock = std::chrono::steady_clock;

  std::vector<orvane::UploadRecord> changed_;
  Clock::time_point due_ = {};
};

}  // namespace backup
