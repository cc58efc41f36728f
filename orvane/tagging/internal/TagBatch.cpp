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
constexpr std::size_t kFirstTags = 500;
/// What a transaction may take, its commit included.
constexpr Clock::duration kLongest = std::chrono::milliseconds(30);

/// How many tags fill a transaction, by how long it took with `count`.
std::size_t nextMost(std::size_t count, Clock::duration took) {
  const auto fitting =
      static_cast<double>(count) * (kLongest / std::chrono::duration<double>(took));
  return std::clamp<std::size_t>(static_cast<std::size_t>(fitting), 1,
                                 std::min(2 * count, kMostTags));
}

}  // namespace

TagBatch::TagBatch(const TagDatabase& database, std::string deviceUUID)
    : queue_(database.queue()), deviceUUID_(std::move(deviceUUID)), most_(kFirstTags) {}

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
  Clock::time_point begun;
  const auto written = queue_->write([&](platform::Database& database) -> Result<void> {
    begun = Clock::now();
    for (; count < most_ && reached.asset < waiting_.size(); ++count) {
      const auto& [assetId, tags] = waiting_[reached.asset];
      const auto& [tag, confidence] = tags[reached.tag];
      static_cast<void>(TagDatabase::insertTag(database, assetId, tag, confidence, deviceUUID_));
      advance(reached, 1);
    }
    return {};
  });
  if (written) {
    position = reached;
    if (count == most_) most_ = nextMost(count, Clock::now() - begun);
    givenUp_ = 1;
  } else if (count > 1) {
    most_ = 1;  // Whatever has ended the transaction shall take no other tag with it.
  } else {
    advance(position, std::exchange(givenUp_, 2 * givenUp_));
  }
}

void TagBatch::advance(Position& position, std::size_t tags) const {
  position.tag += tags;
  while (position.asset < waiting_.size() && position.tag >= waiting_[position.asset].tags.size()) {
    position.tag -= waiting_[position.asset++].tags.size();
  }
}

}  // namespace orvane::internal
