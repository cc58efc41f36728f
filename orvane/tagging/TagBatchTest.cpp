#include <orvane/tagging/TagBatch.h>

#include <orvane/tagging/TagDatabase.h>

#include "support/TagDatabaseFile.h"
#include "support/Test.h"

namespace orvane::tagging {
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

TEST(TagBatch, LargeTagsAreWrittenAFewAtATime) {
  ASSERT_TRUE(TagDatabase::shared().initialize());
  std::vector<TagWithConfidence> tags;
  for (int i = 0; i < 60; ++i) tags.push_back({std::string(100'000, 'x') + std::to_string(i), 1});
  // As long as another connection reads, the log is kept.
  const auto log = testing::otherConnection()->read([&](Database& database) -> Result<std::string> {
    EXPECT_TRUE(database.fetchInteger("SELECT COUNT(*) FROM asset_tags"));
    TagBatch batch(TagDatabase::shared(), "A");
    batch.add("asset", tags);
    EXPECT_EQ(batch.finish(), 60);
    return readFile(testing::tagDatabaseFile().string() + "-wal");
  });
  EXPECT_EQ(TagDatabase::shared().tagsForAsset("asset")->size(), 60U);
  EXPECT_GE(transactionsIn(log.value()).size(), 20U);  // More where one of them takes too long.
  EXPECT_THAT(transactionsIn(log.value()), ::testing::Each(::testing::Lt(2'000'000U)));
}

/// Of single writes, three would give up after 3 seconds each, and the fourth would be in time.
TEST(TagBatch, ALockOfTenSecondsCostsNoMoreThanSingleWritesWould) {
  ASSERT_TRUE(TagDatabase::shared().initialize());
  std::vector<TagWithConfidence> tags;
  for (int i = 0; i < 1000; ++i) tags.push_back({std::to_string(i), 1});
  std::jthread writer;
  const auto locked = testing::otherConnection()->write([&](Database&) -> Result<void> {
    writer = std::jthread([&] {
      TagBatch batch(TagDatabase::shared(), "A");
      batch.add("asset", tags);
      EXPECT_EQ(batch.finish(), 1000);
    });
    std::this_thread::sleep_for(std::chrono::seconds(10));
    return {};
  });
  ASSERT_TRUE(locked);
  writer.join();
  EXPECT_GE(TagDatabase::shared().tagsForAsset("asset")->size(), 1000U - 2 * 3);
}

}  // namespace
}  // namespace orvane::tagging
