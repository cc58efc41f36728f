#pragma once

#include <orvane/tagging/TagWithConfidence.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orvane {

class TagDatabase;

namespace platform {
class DatabaseQueue;
}

namespace internal {

/// Writes many tags of one device at a fraction of the cost of `TagDatabase::upsertTag`, and with
/// the same outcome for each: a tag that cannot be written is passed over, the others stay.
///
/// Tags are gathered, then written many at a time. Each transaction is made as long as the one
/// before lets expect 25 ms, commit included, and of at most 256 KiB of text, so that on a disk
/// that is not slow other callers of the database wait less than 50 ms. One tag cannot be divided:
/// where a single one has megabytes, they wait for it as they would for `upsertTag`.
///
/// As long as no transaction can even be begun (another process holds the lock beyond the
/// database's patience), each attempt gives up twice as many tags as the one before, up to 1000, so
/// that not every single one is waited for.
///
/// Calls block on the database; without an open one they only count. One thread at a time.
class TagBatch {
 public:
  TagBatch(const TagDatabase& database, std::string deviceUUID);

  void add(std::string assetId, std::vector<TagWithConfidence> tags);

  /// Writes what is left, and returns how many tags were added in all, written or not.
  [[nodiscard]] std::int64_t finish();

 private:
  struct AssetTags {
    std::string assetId;
    std::vector<TagWithConfidence> tags;
  };
  /// A place among the tags that wait.
  struct Position {
    std::size_t asset = 0;
    std::size_t tag = 0;
  };

  void flush();
  /// Writes tags from `position` on, at most `most_`, in one transaction; moves `position` on.
  void writeSome(Position& position);
  /// Sets `most_` after `count` tags have taken so long, commit included.
  void adapt(std::size_t count, std::chrono::steady_clock::duration taken);
  void advance(Position& position, std::size_t tags) const;

  std::shared_ptr<platform::DatabaseQueue> queue_;  ///< Null without an open database.
  std::string deviceUUID_;
  std::vector<AssetTags> waiting_;
  std::size_t waitingTags_ = 0;
  std::int64_t added_ = 0;
  std::size_t most_;         ///< Tags in the next transaction.
  std::size_t givenUp_ = 1;  ///< Tags that the next attempt costs if it cannot be begun.
};

}  // namespace internal
}  // namespace orvane
