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
/// How long a transaction is to take, commit included; it gathers no longer than that.
constexpr Clock::duration kAim = std::chrono::milliseconds(25);
/// How many tags the first one has at most: nothing is known of the disk yet.
constexpr std::size_t kFirstTags = 1000;
/// And each at least, short of `kMostText`: on a slow disk fewer would cost even more time.
constexpr std::size_t kFewestTags = 500;
/// After so many bytes of texts a transaction takes no further tag.
constexpr std::size_t kMostText = std::size_t{256} << 10;
/// How many tags are given up at most because a transaction could not be begun.
constexpr std::size_t kMostGivenUp = 1000;

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
  Clock::time_point start;
  const auto written = queue_->write([&](platform::Database& database) -> Result<void> {
    start = Clock::now();  // Waiting for other callers does not count.
    std::size_t text = 0;
    while (reached.asset < waiting_.size() && count < most_ && text < kMostText &&
           (count < kFewestTags || Clock::now() - start < kAim)) {
      const auto& [assetId, tags] = waiting_[reached.asset];
      const auto& [tag, confidence] = tags[reached.tag];
      static_cast<void>(TagDatabase::insertTag(database, assetId, tag, confidence, deviceUUID_));
      text += assetId.size() + tag.size();
      advance(reached, 1);
      ++count;
    }
    return {};
  });
  if (written) {
    position = reached;
    adapt(count, Clock::now() - start);
    givenUp_ = 1;
  } else if (count > 1) {
    most_ = 1;  // Whatever has ended the transaction shall take no other tag with it.
  } else if (count == 1) {
    advance(position, 1);
  } else {
    advance(position, std::exchange(givenUp_, std::min(2 * givenUp_, kMostGivenUp)));
  }
}

void TagBatch::adapt(std::size_t count, Clock::duration taken) {
  const auto parts = std::max(taken, Clock::duration(1)).count();
  const auto fitting = static_cast<std::int64_t>(count) * kAim.count() / parts;
  most_ =
      std::min({2 * most_, std::max(static_cast<std::size_t>(fitting), kFewestTags), kMostTags});
}

void TagBatch::advance(Position& position, std::size_t tags) const {
  position.tag += tags;
  while (position.asset < waiting_.size() && position.tag >= waiting_[position.asset].tags.size()) {
    position.tag -= waiting_[position.asset++].tags.size();
  }
}

}  // namespace orvane::internal
