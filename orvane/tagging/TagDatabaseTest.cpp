#include <orvane/tagging/TagDatabase.h>

#include "support/TagDatabaseFile.h"
#include "support/Test.h"

namespace orvane {
namespace {

using testing::tagDatabaseRows;
using Progress = BackfillProgress;

std::int64_t now() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

/// All rows share one time between `start` and now, in whole milliseconds.
void expectWholeTime(const std::string& column, const std::string& table, std::int64_t start) {
  EXPECT_THAT(tagDatabaseRows("SELECT DISTINCT typeof(" + column + ") FROM " + table),
              ElementsAre("integer"));
  const auto times = tagDatabaseRows("SELECT DISTINCT " + column + " FROM " + table);
  ASSERT_EQ(times.size(), 1U);
  EXPECT_GE(std::stoll(times[0]), start);
  EXPECT_LE(std::stoll(times[0]), now());
}

class TagDatabaseTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(db.initialize()); }

  TagDatabase& db = TagDatabase::shared();
};

TEST_F(TagDatabaseTest, AnotherRowReplacesTheOneOfTheSameDevice) {
  const auto start = now();
  ASSERT_TRUE(db.upsertTag("a", "mare", 0.5, "A"));
  ASSERT_TRUE(db.upsertTag("a", "mare", 0.25, "A"));
  ASSERT_TRUE(db.upsertTag("a", "mare", 0.75, "B"));
  EXPECT_THAT(
      db.getTagsForAsset("a").value(),
      UnorderedElementsAre(TagWithConfidence{"mare", 0.25}, TagWithConfidence{"mare", 0.75}));
  EXPECT_THAT(db.tagsForAsset("a").value(), ElementsAre("mare", "mare"));
  EXPECT_THAT(db.tagsForAsset("A").value(), IsEmpty());
  EXPECT_THAT(tagDatabaseRows("SELECT DISTINCT source FROM asset_tags"), ElementsAre("ml_v1"));
  // A whole millisecond would be chance: some of a few have a fraction.
  while (tagDatabaseRows("SELECT 1 FROM asset_tags WHERE typeof(created_at) = 'real'").empty()) {
    ASSERT_TRUE(db.upsertTag("a", "mare", 0.25, "A"));
    ASSERT_LT(now(), start + 10'000);
  }
}

TEST_F(TagDatabaseTest, SeveralTagsShareOneTimeAndAreWrittenAllOrNone) {
  const auto start = now();
  ASSERT_TRUE(db.upsertTags("a", {}, "A"));
  ASSERT_TRUE(db.upsertTags("a", {{"mare", 0.9}, {"cane", 0.8}, {"mare", 0.7}}, "A"));
  const std::vector<TagWithConfidence> stored = {{"cane", 0.8}, {"mare", 0.7}};
  EXPECT_THAT(db.getTagsForAsset("a").value(), ::testing::UnorderedElementsAreArray(stored));
  expectWholeTime("created_at", "asset_tags", start);
  ASSERT_TRUE(testing::otherConnection()->write([](platform::Database& database) {
    return database.execute(
        "CREATE TRIGGER t BEFORE INSERT ON asset_tags WHEN NEW.tag = 'bad'"
        " BEGIN SELECT RAISE(ABORT, 'refused'); END");
  }));
  const auto done = db.upsertTags("a", {{"neve", 1}, {"bad", 1}, {"mare", 1}}, "A");
  EXPECT_EQ(done.error().domain(), Error::kDatabase);
  EXPECT_THAT(db.getTagsForAsset("a").value(), ::testing::UnorderedElementsAreArray(stored));
}

TEST_F(TagDatabaseTest, ExportHoldsOneDeviceInRowOrder) {
  EXPECT_THAT(db.exportAllTagsForDevice("A").value(), IsEmpty());
  ASSERT_TRUE(db.upsertTags("a", {{"1", 0.1}, {"2", 0.2}}, "A"));
  ASSERT_TRUE(db.upsertTags("b", {{"x", 1}}, "A"));
  ASSERT_TRUE(db.upsertTags("a", {{"3", 0.3}}, "A"));  // Apart from the asset's other rows.
  ASSERT_TRUE(db.upsertTags("a", {{"other", 1}}, "B"));
  EXPECT_EQ(db.exportAllTagsForDevice("A").value(),
            (TagsByAsset{{"a", {{"1", 0.1}, {"2", 0.2}, {"3", 0.3}}}, {"b", {{"x", 1}}}}));
}

TEST_F(TagDatabaseTest, SearchMatchesAnyPartOfATag) {
  ASSERT_TRUE(db.upsertTags("a", {{"Spiaggia", 1}, {"mare", 1}}, "A"));
  ASSERT_TRUE(db.upsertTags("a", {{"spiaggia", 1}}, "B"));
  ASSERT_TRUE(db.upsertTags("b", {{"città", 1}, {"100%", 1}}, "A"));
  const struct {
    std::string_view query;
    std::vector<std::string> assets;
  } cases[] = {{"", {"a", "b"}}, {"PIAG", {"a"}}, {"CITTÀ", {}},    {"citt_", {"b"}},
               {"s%a", {"a"}},   {"m are", {}},   {"maremare", {}}, {"'; DROP TABLE x; --", {}}};
  for (const auto& [query, assets] : cases) {
    EXPECT_THAT(db.searchAssetsByTag(query).value(), ::testing::UnorderedElementsAreArray(assets))
        << query;
  }
}

TEST_F(TagDatabaseTest, TopTagsCountRows) {
  ASSERT_TRUE(db.upsertTags("a", {{"mare", 1}, {"cane", 1}}, "A"));
  ASSERT_TRUE(db.upsertTags("a", {{"mare", 1}}, "B"));
  ASSERT_TRUE(db.upsertTags("b", {{"mare", 1}, {"cane", 1}, {"neve", 1}}, "A"));
  const std::vector<TagWithCount> all{{"mare", 3}, {"cane", 2}, {"neve", 1}};
  EXPECT_EQ(db.topTags(-1).value(), all);
  EXPECT_EQ(db.topTags(2).value(), std::vector(all.begin(), all.begin() + 2));
  EXPECT_THAT(db.topTags(0).value(), IsEmpty());
}

TEST_F(TagDatabaseTest, StateOfADevice) {
  EXPECT_EQ(db.getRemoteETag("A").value(), std::nullopt);
  EXPECT_EQ(db.getLastSeenTimestamp("A").value(), 0);
  ASSERT_TRUE(db.updateRemoteETag("A", "none"));
  EXPECT_EQ(db.getRemoteETag("A").value(), std::nullopt) << "nothing to update";

  ASSERT_TRUE(db.upsertRemoteETag("A", "first"));
  EXPECT_THAT(
      tagDatabaseRows("SELECT byte_offset || last_sync_at || last_seen_ts FROM tag_sync_offsets"),
      ElementsAre("000"));
  ASSERT_TRUE(db.updateRemoteETag("A", "second"));
  EXPECT_EQ(db.getRemoteETag("A").value(), "second");
  const auto start = now();
  ASSERT_TRUE(db.updateLastSeenTimestamp("A", INT64_MAX));
  EXPECT_EQ(db.getLastSeenTimestamp("A").value(), INT64_MAX);
  EXPECT_EQ(db.getRemoteETag("A").value(), "");
  expectWholeTime("last_sync_at", "tag_sync_offsets", start);
  ASSERT_TRUE(db.upsertRemoteETag("A", "third"));
  EXPECT_EQ(db.getLastSeenTimestamp("A").value(), INT64_MAX);

  ASSERT_TRUE(db.upsertTag("a", "mare", 1, "A"));
  ASSERT_TRUE(db.deleteAllTags());
  EXPECT_THAT(db.tagsForAsset("a").value(), IsEmpty());
  EXPECT_EQ(db.getRemoteETag("A").value(), "third");
}

TEST_F(TagDatabaseTest, ABackfillIsOneRow) {
  EXPECT_EQ(db.getBackfillProgress().value(), std::nullopt);
  ASSERT_TRUE(db.updateBackfillProgress(1) && db.completeBackfill() && db.resetBackfillCompleted());
  EXPECT_EQ(db.getBackfillProgress().value(), std::nullopt) << "nothing to change";
  const auto start = now();
  ASSERT_TRUE(db.initializeBackfill(10));
  EXPECT_EQ(db.getBackfillProgress().value(), (Progress{10, 0, 0}));
  expectWholeTime("started_at", "backfill_progress", start);
  ASSERT_TRUE(db.updateBackfillProgress(4));
  ASSERT_TRUE(db.completeBackfill());
  EXPECT_EQ(db.getBackfillProgress().value(), (Progress{10, 4, 1}));
  ASSERT_TRUE(db.resetBackfillCompleted());
  EXPECT_EQ(db.getBackfillProgress().value(), (Progress{10, 4, 0}));
  ASSERT_TRUE(db.initializeBackfill(20));
  EXPECT_EQ(db.getBackfillProgress().value(), (Progress{20, 0, 0}));
  ASSERT_TRUE(db.deleteBackfillProgress());
  EXPECT_EQ(db.getBackfillProgress().value(), std::nullopt);
}

TEST(TagDatabaseUnopened, DoesNothingAndHoldsNothing) {
  auto& db = TagDatabase::shared();
  EXPECT_TRUE(db.upsertTag("a", "t", 1, "A") && db.upsertTags("a", {{"t", 1}}, "A") &&
              db.deleteAllTags() && db.updateRemoteETag("A", "e") &&
              db.upsertRemoteETag("A", "e") && db.updateLastSeenTimestamp("A", 1) &&
              db.initializeBackfill(1) && db.updateBackfillProgress(1) && db.completeBackfill() &&
              db.resetBackfillCompleted() && db.deleteBackfillProgress());
  EXPECT_TRUE(db.tagsForAsset("a").value().empty() && db.getTagsForAsset("a").value().empty() &&
              db.exportAllTagsForDevice("A").value().empty() &&
              db.searchAssetsByTag("").value().empty() && db.topTags(-1).value().empty() &&
              !db.getRemoteETag("A").value() && db.getLastSeenTimestamp("A").value() == 0 &&
              !db.getBackfillProgress().value());
  EXPECT_FALSE(fs::exists(testing::tagDatabaseFile()));
}

}  // namespace
}  // namespace orvane
