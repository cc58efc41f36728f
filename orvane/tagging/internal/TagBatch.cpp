#include <orvane/platform/DatabaseQueue.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagging/internal/TagBatch.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace orvane::internal {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostTags = 5000;
/// How long a transaction gathers; committing takes about as long again.
constexpr auto kLongest = std::chrono::milliseconds(20);
/// And how many tags it has at least: where the disk is slow, fewer would cost even more time.
constexpr std::size_t kFewestTags = 200;

}  // namespace

TagBatch::TagBatch(const TagDatabase& database, std::string deviceUUID)
    : queue_(database.queue()), deviceUUID_(std::move(deviceUUID)), most_(kMostTags) {}

void TagBatch::add(std::string assetId, std::vector<TagWithConfidence> tags) {
  if (tags.empty()) return;
  waitingTags_ += tags.size();
  waiting_.push_back({std::move(assetId), std::move(tags)});
  if (waitingTags_ >= kMostTags) flush();
}

std::int64_t TagBatch::finish() {
  flush();
  return added_;
}

void TagBatch::flush() {
  added_ += static_cast<std::int64_t>(std::exchange(waitingTags_, 0));
  if (queue_) {
    for (Position position; position.asset < waiting_.size();) writeSome(position);
  }
  waiting_.clear();
}

void TagBatch::writeSome(Position& position) {
  Position reached = position;
  std::size_t count = 0;
  const auto written = queue_->write([&](platform::Database& database) -> Result<void> {
    const auto end = Clock::now() + kLongest;
    while (reached.asset < waiting_.size() && count < most_ &&
           (count < kFewestTags || Clock::now() < end)) {
      const auto& [assetId, tags] = waiting_[reached.asset];
      const auto& [tag, confidence] = tags[reached.tag];
      static_cast<void>(TagDatabase::insertTag(database, assetId, tag, confidence, deviceUUID_));
      advance(reached, 1);
      ++count;
    }
    return {};
  });
  if (written) {
    position = reached;
    most_ = std::min(2 * most_, kMostTags);
    givenUp_ = 1;
  } else if (count > 1) {
    most_ = 1;  // Whatever has ended the transaction shall take no other tag with it.
  } else {
    advance(position, std::exchange(givenUp_, std::min(2 * givenUp_, kMostTags)));
  }
}

void TagBatch::advance(Position& position, std::size_t tags) const {
  position.tag += tags;
  while (position.asset < waiting_.size() && position.tag >= waiting_[position.asset].tags.size()) {
    position.tag -= waiting_[position.asset++].tags.size();
  }
}

}  // namespace orvane::internal
