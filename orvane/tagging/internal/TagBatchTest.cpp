#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagging/internal/TagBatch.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/TagDatabaseFile.h"
#include "support/TemporaryDirectory.h"

namespace orvane::internal {
namespace {

using platform::Database;

std::size_t numberAt(std::string_view bytes, std::size_t position) {
  std::size_t number = 0;
  for (const char byte : bytes.substr(position, 4)) {
    number = number << 8 | static_cast<unsigned char>(byte);
  }
  return number;
}

/// The bytes that each transaction has put into the write-ahead log.
std::vector<std::size_t> transactionsIn(std::string_view log) {
  const auto frameSize = 24 + numberAt(log, 8);
  std::vector<std::size_t> sizes;
  std::size_t size = 0;
  for (std::size_t frame = 32; frame < log.size(); frame += frameSize) {
    size += frameSize;
    if (numberAt(log, frame + 4) == 0) continue;  // Only the last frame of a commit has this.
    sizes.push_back(std::exchange(size, 0));
  }
  return sizes;
}

/// The transactions in which `tags` are written.
std::vector<std::size_t> transactionsFor(std::vector<TagWithConfidence> tags) {
  const platform::DatabaseQueue::Preparation emptyLog = [](Database& database) {
    return database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
  };
  const auto other = platform::DatabaseQueue::open(testing::tagDatabaseFile(), emptyLog).value();
  // As long as it reads, the log is kept.
  return other
      ->read([&](Database& database) -> Result<std::vector<std::size_t>> {
        EXPECT_TRUE(database.fetchInteger("SELECT COUNT(*) FROM asset_tags"));
        const auto count = tags.size();
        TagBatch batch(TagDatabase::shared(), "A");
        batch.add("asset", std::move(tags));
        EXPECT_EQ(batch.finish(), std::int64_t(count));
        EXPECT_EQ(TagDatabase::shared().tagsForAsset("asset")->size(), count);
        return transactionsIn(testing::readFile(testing::tagDatabaseFile().string() + "-wal"));
      })
      .value();
}

TEST(TagBatch, LargeTagsAreWrittenAFewAtATime) {
  ASSERT_TRUE(TagDatabase::shared().initialize());
  std::vector<TagWithConfidence> tags;
  tags.reserve(60);
  for (int i = 0; i < 60; ++i) tags.push_back({std::string(100'000, 'x') + std::to_string(i), 1});
  const auto transactions = transactionsFor(tags);
  EXPECT_EQ(transactions.size(), 20U);
  EXPECT_THAT(transactions, ::testing::Each(::testing::Lt(2'000'000U)));
}

/// Each tag takes so long that 500 of them are beyond the bound on any machine.
TEST(TagBatch, SlowTagsAreWrittenInManyTransactions) {
  ASSERT_TRUE(TagDatabase::shared().initialize());
  const auto slowed = testing::otherConnection()->write([](Database& database) -> Result<void> {
    auto done = database.execute(
        "CREATE VIEW slow AS WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL "
        "SELECT x + 1 FROM c WHERE x < 4000) SELECT max(x) FROM c");
    if (!done) return done;
    return database.execute(
        "CREATE TRIGGER t BEFORE INSERT ON asset_tags BEGIN SELECT * FROM slow; END");
  });
  ASSERT_TRUE(slowed);
  std::vector<TagWithConfidence> tags;
  tags.reserve(1500);
  for (int i = 0; i < 1500; ++i) tags.push_back({std::to_string(i), 1});
  EXPECT_EQ(transactionsFor(tags).size(), 3U);
}

}  // namespace
}  // namespace orvane::internal
