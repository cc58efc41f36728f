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

namespace tagging {

/// Writes many tags of one device at a fraction of the cost of `TagDatabase::upsertTag`, and with
/// the same outcome for each: a tag that cannot be written is skipped, the others stay.
///
/// Tags are gathered, then written many in a transaction, which ends after 25 ms or 256 KiB of text
/// before its commit: other callers of the database wait about 50 ms at most, unless a single tag
/// takes longer. After a transaction that fails, the next one holds one tag, and each that succeeds
/// lets the next hold twice as many.
///
/// A tag is lost each time that no transaction can be begun because another process holds the
/// database's lock beyond its patience of 3 seconds: as many as single writes would lose. Only
/// where that lasts longer than 12 seconds, each further attempt gives up twice as many.
///
/// Calls block on the database; without an open one they only count. One thread at a time.
class TagBatch {
 public:
  TagBatch(const TagDatabase& database, std::string deviceUUID);

  void add(std::string assetId, std::vector<TagWithConfidence> tags);

  /// Writes what is left, and returns how many tags were added in all, written or not.
  [[nodiscard]] std::int64_t finish();

 private:
  struct Row {
    std::shared_ptr<const std::string> assetId;
    TagWithConfidence tag;
  };

  void flush();
  /// Writes rows from `next` on in one transaction and moves `next` past those tried. False when
  /// none of them is written.
  [[nodiscard]] bool writeSome(std::size_t& next);
  /// How many tags to give up because a transaction could not be begun.
  [[nodiscard]] std::size_t giveUp();

  std::shared_ptr<platform::DatabaseQueue> queue_;  ///< Null without an open database.
  std::string deviceUUID_;
  std::vector<Row> rows_;
  std::int64_t added_ = 0;
  std::size_t maxRows_;     ///< In the next transaction.
  int lockedAttempts_ = 0;  ///< Since a transaction was last begun.
};

}  // namespace tagging
}  // namespace orvane
