#include <orvane/tagging/TagBatch.h>

#include <orvane/platform/database/DatabaseQueue.h>
#include <orvane/tagging/TagDatabase.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace orvane::tagging {
namespace {

using Clock = std::chrono::steady_clock;

// A transaction takes no further row after any of these.
constexpr std::size_t kMaxRows = 5000;
constexpr std::size_t kMaxBytes = std::size_t{256} << 10;
constexpr Clock::duration kMaxDuration = std::chrono::milliseconds(25);

}  // namespace

TagBatch::TagBatch(const TagDatabase& database, std::string deviceUUID)
    : queue_(database.queue()), deviceUUID_(std::move(deviceUUID)), maxRows_(kMaxRows) {}

void TagBatch::add(std::string assetId, std::vector<TagWithConfidence> tags) {
  added_ += std::ssize(tags);
  if (!queue_) return;
  const auto asset = std::make_shared<const std::string>(std::move(assetId));
  for (auto& tag : tags) {
    rows_.push_back({asset, std::move(tag)});
    if (rows_.size() == kMaxRows) flush();
  }
}

std::int64_t TagBatch::finish() {
  flush();
  return added_;
}

void TagBatch::flush() {
  for (std::size_t next = 0; next < rows_.size();) {
    std::size_t end = next;
    if (writeSome(end)) {
      next = end;
      maxRows_ = std::min(2 * maxRows_, kMaxRows);
    } else {
      const auto tried = end - next;
      if (tried <= 1) next += tried == 0 ? giveUp() : 1;
      maxRows_ = 1;  // Whatever has ended the transaction shall take no other tag with it.
    }
  }
  rows_.clear();
}

bool TagBatch::writeSome(std::size_t& next) {
  const auto end = std::min(next + maxRows_, rows_.size());
  const auto written = queue_->write([&](platform::Database& database) -> Result<void> {
    lockedAttempts_ = 0;
    const auto start = Clock::now();  // Waiting for other callers does not count.
    std::size_t bytes = 0;
    do {
      const auto& [assetId, tag] = rows_[next++];
      static_cast<void>(
          TagDatabase::insertTag(database, *assetId, tag.tag, tag.confidence, deviceUUID_));
      bytes += assetId->size() + tag.tag.size();
    } while (next < end && bytes < kMaxBytes && Clock::now() - start < kMaxDuration);
    return {};
  });
  return written.has_value();
}

std::size_t TagBatch::giveUp() {
  constexpr int kSingly = 4;
  constexpr int kMaxDoublings = 12;
  return std::size_t{1} << std::clamp(++lockedAttempts_ - kSingly, 0, kMaxDoublings);
}

}  // namespace orvane::tagging
