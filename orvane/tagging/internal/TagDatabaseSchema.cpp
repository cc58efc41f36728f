#include <orvane/tagging/internal/TagDatabaseSchema.h>

#include <string_view>

namespace orvane::tagging {
namespace {

using platform::Database;

constexpr std::string_view kFirstLayout[] = {
    R"(CREATE TABLE asset_tags (
  asset_id TEXT NOT NULL,
  tag TEXT NOT NULL,
  confidence REAL NOT NULL DEFAULT 0.0,
  source TEXT NOT NULL DEFAULT 'ml_v1',
  created_at INTEGER NOT NULL,
  device_uuid TEXT NOT NULL,
  PRIMARY KEY (asset_id, tag, device_uuid)
))",
    "CREATE INDEX idx_asset_tags_tag ON asset_tags(tag)",
    "CREATE INDEX idx_asset_tags_asset ON asset_tags(asset_id)",
    R"(CREATE TABLE IF NOT EXISTS tag_sync_offsets (
  device_uuid TEXT NOT NULL PRIMARY KEY,
  byte_offset INTEGER NOT NULL DEFAULT 0,
  last_sync_at INTEGER NOT NULL DEFAULT 0,
  remote_etag TEXT NOT NULL DEFAULT '',
  last_seen_ts INTEGER NOT NULL DEFAULT 0
))",
    R"(CREATE TABLE IF NOT EXISTS backfill_progress (
  id INTEGER PRIMARY KEY DEFAULT 1,
  total INTEGER NOT NULL DEFAULT 0,
  processed INTEGER NOT NULL DEFAULT 0,
  completed INTEGER NOT NULL DEFAULT 0,
  started_at INTEGER NOT NULL DEFAULT 0
))",
};

constexpr std::string_view kCountLastSeen =
    "SELECT COUNT(*) FROM pragma_table_info('tag_sync_offsets') WHERE name='last_seen_ts'";
constexpr std::string_view kAddLastSeen =
    "ALTER TABLE tag_sync_offsets ADD COLUMN last_seen_ts INTEGER NOT NULL DEFAULT 0";

Result<void> createFirstLayout(Database& database) {
  for (const auto statement : kFirstLayout) {
    if (auto done = database.execute(statement); !done) return done;
  }
  return {};
}

/// For files whose table of devices is older than its column of time stamps.
Result<void> addLastSeen(Database& database) {
  const auto exists = database.tableExists("tag_sync_offsets");
  if (!exists) return std::unexpected(exists.error());
  if (!*exists) return {};
  const auto count = database.fetchInteger(kCountLastSeen);
  if (!count) return std::unexpected(count.error());
  if (count->value_or(0) != 0) return {};
  return database.execute(kAddLastSeen);
}

}  // namespace

platform::DatabaseMigrator tagDatabaseMigrator() {
  platform::DatabaseMigrator migrator;
  migrator.add("v1", createFirstLayout);
  migrator.add("v2_add_last_seen_ts", addLastSeen);
  return migrator;
}

}  // namespace orvane::tagging
