#include <orvane/tagging/TagDatabase.h>

#include "support/TagDatabaseFile.h"
#include "support/Test.h"

namespace orvane {
namespace {

using platform::Database;
using testing::otherConnection;
using testing::tagDatabaseFile;
using testing::tagDatabaseRows;

fs::path folder() { return tagDatabaseFile().parent_path(); }

/// Makes the file by plain SQL.
void build(const std::vector<std::string>& statements) {
  fs::create_directories(folder());
  const auto built = otherConnection()->write([&](Database& database) -> Result<void> {
    for (const auto& statement : statements) {
      if (auto done = database.execute(statement); !done) return done;
    }
    return {};
  });
  ASSERT_TRUE(built) << built.error().description();
}

std::vector<std::string> applied() {
  return tagDatabaseRows("SELECT identifier FROM grdb_migrations ORDER BY rowid");
}

std::vector<std::string> tables() {
  return tagDatabaseRows("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name");
}

const std::string kRecords = "CREATE TABLE grdb_migrations (identifier TEXT NOT NULL PRIMARY KEY)";
const std::string kRecordV1 = "INSERT INTO grdb_migrations VALUES ('v1')";
const std::string kOldOffsets =
    "CREATE TABLE tag_sync_offsets (device_uuid TEXT NOT NULL PRIMARY KEY,"
    " byte_offset INTEGER NOT NULL DEFAULT 0, last_sync_at INTEGER NOT NULL DEFAULT 0,"
    " remote_etag TEXT NOT NULL DEFAULT '')";
const std::string kOldRow = "INSERT INTO tag_sync_offsets VALUES ('A', 0, 5, 'etag')";

TEST(TagDatabaseFiles, ANewFileHasTheWholeLayout) {
  ASSERT_TRUE(TagDatabase::shared().initialize());
  EXPECT_THAT(applied(), ElementsAre("v1", "v2_add_last_seen_ts"));
  std::string layout;
  for (const auto* const query :
       {"SELECT t.name || '.' || c.name || ' ' || c.type || c.\"notnull\" || "
        "coalesce(c.dflt_value, '') || c.pk FROM sqlite_master t, pragma_table_info(t.name) c"
        " WHERE t.name <> 'grdb_migrations' AND t.type = 'table' ORDER BY t.rowid, c.cid",
        "SELECT sql FROM sqlite_master WHERE type = 'index' AND sql IS NOT NULL"}) {
    for (const auto& row : tagDatabaseRows(query)) layout += row + '\n';
  }
  EXPECT_EQ(layout, readFile(ORVANE_TAG_DATABASE_LAYOUT));
  EXPECT_TRUE(fs::exists(tagDatabaseFile().string() + "-wal"));
  EXPECT_EQ(fs::status(tagDatabaseFile()).permissions(), fs::perms{0600});
  EXPECT_EQ(fs::status(folder()).permissions(), fs::perms{0700});
}

TEST(TagDatabaseFiles, AnOlderFileGetsWhatIsMissing) {
  using Names = std::vector<std::string>;
  const struct {
    std::vector<std::string> statements;
    Names tables;
  } cases[] = {
      {{kRecords, kRecordV1, kOldOffsets, kOldRow}, {"grdb_migrations", "tag_sync_offsets"}},
      {{kOldOffsets, kOldRow},
       {"asset_tags", "backfill_progress", "grdb_migrations", "tag_sync_offsets"}},
      {{kRecords, kRecordV1}, {"grdb_migrations"}}};
  for (const auto& [statements, expected] : cases) {
    fs::remove_all(folder());
    build(statements);
    ASSERT_TRUE(TagDatabase::shared().initialize());
    EXPECT_THAT(applied(), ElementsAre("v1", "v2_add_last_seen_ts"));
    EXPECT_EQ(tables(), expected);
    if (statements.back() != kOldRow) continue;
    EXPECT_EQ(TagDatabase::shared().getLastSeenTimestamp("A").value(), 0);
    EXPECT_EQ(TagDatabase::shared().getRemoteETag("A").value(), "etag");
  }
}

TEST(TagDatabaseFiles, AFailedStepLeavesTheStoreOpen) {
  build({"CREATE TABLE asset_tags (anything)", kOldOffsets, kOldRow});
  const auto failed = TagDatabase::shared().initialize();
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().domain(), Error::kDatabase);
  EXPECT_THAT(failed.error().description(), HasSubstr("asset_tags already exists"));
  EXPECT_THAT(tables(), ElementsAre("asset_tags", "tag_sync_offsets"));
  EXPECT_EQ(TagDatabase::shared().getRemoteETag("A").value(), "etag");
}

TEST(TagDatabaseFiles, AFileThatIsNoDatabaseIsLeftAlone) {
  build({kRecords, kRecordV1, kOldOffsets, kOldRow});
  const auto whole = readFile(tagDatabaseFile());
  for (const auto& content : {std::string("short"), whole.substr(0, 5000)}) {
    writeFile(tagDatabaseFile(), content);
    const auto failed = TagDatabase::shared().initialize();
    ASSERT_FALSE(failed) << content.size();
    EXPECT_EQ(failed.error().domain(), Error::kDatabase);
    EXPECT_THAT(failed.error().code() & 0xff, ::testing::AnyOf(11, 26));
    EXPECT_TRUE(readFile(tagDatabaseFile()) == content) << content.size();
  }
}

TEST(TagDatabaseFiles, WhatCannotBeOpenedLeavesTheStoreAsItWas) {
  auto& db = TagDatabase::shared();
  fs::create_directories(folder().parent_path());
  writeFile(folder(), "in the way");
  EXPECT_EQ(db.initialize().error().domain(), Error::kDatabase);
  fs::remove(folder());
  ASSERT_TRUE(db.initialize() && db.upsertTag("a", "mare", 1, "A"));
  fs::remove(tagDatabaseFile());
  fs::create_directory(tagDatabaseFile());
  EXPECT_EQ(db.initialize().error().code() & 0xff, 14);
  EXPECT_THAT(db.tagsForAsset("a").value(), ElementsAre("mare"));
}

/// Writes until the "disk" is full, then goes on when there is room again.
const ChildMain kFullDisk("full-disk", [](const auto&) {
  auto& db = TagDatabase::shared();
  if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR || !db.initialize()) return 1;
  const rlimit former{RLIM_INFINITY, RLIM_INFINITY};
  const rlimit small{300'000, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &small);
  std::size_t stored = 0;
  const std::vector<TagWithConfidence> tags{{std::string(5000, 'a'), 1},
                                            {std::string(5000, 'b'), 1}};
  auto done = db.upsertTags("0", tags, "A");
  while (done) done = db.upsertTags(std::to_string(++stored), tags, "A");
  if (done.error().domain() != Error::kDatabase) return 2;
  setrlimit(RLIMIT_FSIZE, &former);
  if (stored == 0 || !db.upsertTags("later", tags, "A")) return 3;
  const auto found = db.exportAllTagsForDevice("A").value();
  const auto isWhole = [&](const auto& asset) { return asset.second == tags; };
  return found.size() == stored + 1 && std::ranges::all_of(found, isWhole) ? 0 : 4;
});

TEST(TagDatabaseFiles, AFullDiskFailsTheWriteAlone) {
  EXPECT_EQ(ChildProcess::run("full-disk").wait(), 0);
}

/// Holds the write lock until it is killed.
const ChildMain kLockHolder("lock-holder", [](const auto&) {
  const auto queue = otherConnection();
  static_cast<void>(queue->write([](Database& database) -> Result<void> {
    if (auto done = database.execute("DELETE FROM asset_tags"); !done) return done;
    if (write(STDOUT_FILENO, "locked\n", 7) < 0) return {};
    for (;;) pause();
  }));
  return 1;
});

TEST(TagDatabaseFiles, WaitsThreeSecondsForAnotherProcess) {
  auto& db = TagDatabase::shared();
  ASSERT_TRUE(db.initialize());
  ASSERT_TRUE(db.upsertTag("a", "mare", 1, "A"));
  auto holder = ChildProcess::run("lock-holder");
  ASSERT_EQ(holder.readLine(), "locked");
  const auto failed = db.upsertTag("b", "mare", 1, "A");
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().code(), 5);
  EXPECT_THAT(db.tagsForAsset("a").value(), ElementsAre("mare")) << "reading goes on";

  auto waiting = std::async(std::launch::async, [&] { return db.upsertTag("c", "mare", 1, "A"); });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  holder.kill(SIGKILL);
  EXPECT_TRUE(waiting.get());
  EXPECT_THAT(tagDatabaseRows("SELECT asset_id FROM asset_tags ORDER BY asset_id"),
              ElementsAre("a", "c"));
}

}  // namespace
}  // namespace orvane
