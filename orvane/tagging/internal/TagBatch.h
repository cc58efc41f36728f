#pragma once

#include <orvane/tagging/TagWithConfidence.h>

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
/// Tags are gathered, then written many at a time, in transactions so short that other callers of
/// the database hardly wait. As long as nothing at all can be written (another process holds the
/// lock beyond the database's patience, or the disk is full), each attempt gives up twice as many
/// tags as the one before, so that not every single one is waited for.
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
  void advance(Position& position, std::size_t tags) const;

  std::shared_ptr<platform::DatabaseQueue> queue_;  ///< Null without an open database.
  std::string deviceUUID_;
  std::vector<AssetTags> waiting_;
  std::size_t waitingTags_ = 0;
  std::int64_t added_ = 0;
  std::size_t most_;         ///< Tags in the next transaction.
  std::size_t givenUp_ = 1;  ///< Tags that the next attempt costs if not even one can be written.
};

}  // namespace internal
}  // namespace orvane
