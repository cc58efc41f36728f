#pragma once

#include <string_view>

/// What `TagDatabase` asks of its file; the layout is in TagDatabaseSchema.cpp.
namespace orvane::tagging::statements {

inline constexpr std::string_view kUpsertTag =
    "INSERT OR REPLACE INTO asset_tags"
    " (asset_id, tag, confidence, source, created_at, device_uuid)\n"
    "VALUES (?, ?, ?, ?, ?, ?)";
inline constexpr std::string_view kTagsForAsset = "SELECT tag FROM asset_tags WHERE asset_id = ?";
inline constexpr std::string_view kGetTagsForAsset =
    "SELECT tag, confidence FROM asset_tags WHERE asset_id = ?";
inline constexpr std::string_view kExportAllTagsForDevice =
    "SELECT asset_id, tag, confidence FROM asset_tags WHERE device_uuid = ?";
inline constexpr std::string_view kSearchAssetsByTag =
    "SELECT DISTINCT asset_id FROM asset_tags WHERE tag LIKE ?";
inline constexpr std::string_view kTopTags =
    "SELECT tag, COUNT(*) as freq\n"
    "FROM asset_tags\n"
    "GROUP BY tag\n"
    "ORDER BY freq DESC\n"
    "LIMIT ?";
inline constexpr std::string_view kDeleteAllTags = "DELETE FROM asset_tags";

inline constexpr std::string_view kUpdateRemoteETag =
    "UPDATE tag_sync_offsets\n"
    "SET remote_etag = ?\n"
    "WHERE device_uuid = ?";
inline constexpr std::string_view kUpsertRemoteETag =
    "INSERT INTO tag_sync_offsets"
    " (device_uuid, byte_offset, last_sync_at, remote_etag, last_seen_ts)\n"
    "VALUES (?, 0, 0, ?, 0)\n"
    "ON CONFLICT(device_uuid) DO UPDATE SET remote_etag = excluded.remote_etag";
inline constexpr std::string_view kGetRemoteETag =
    "SELECT remote_etag FROM tag_sync_offsets WHERE device_uuid = ?";
inline constexpr std::string_view kGetLastSeenTimestamp =
    "SELECT last_seen_ts FROM tag_sync_offsets WHERE device_uuid = ?";
inline constexpr std::string_view kUpdateLastSeenTimestamp =
    "INSERT OR REPLACE INTO tag_sync_offsets"
    " (device_uuid, byte_offset, last_sync_at, remote_etag, last_seen_ts)\n"
    "VALUES (?, 0, ?, '', ?)";

inline constexpr std::string_view kInitializeBackfill =
    "INSERT OR REPLACE INTO backfill_progress (id, total, processed, completed, started_at)\n"
    "VALUES (1, ?, ?, ?, ?)";
inline constexpr std::string_view kUpdateBackfillProgress =
    "UPDATE backfill_progress SET processed = ? WHERE id = 1";
inline constexpr std::string_view kCompleteBackfill =
    "UPDATE backfill_progress SET completed = 1 WHERE id = 1";
inline constexpr std::string_view kResetBackfillCompleted =
    "UPDATE backfill_progress SET completed = 0 WHERE id = 1";
inline constexpr std::string_view kDeleteBackfillProgress =
    "DELETE FROM backfill_progress WHERE id = 1";
inline constexpr std::string_view kGetBackfillProgress =
    "SELECT total, processed, completed FROM backfill_progress WHERE id = 1";

}  // namespace orvane::tagging::statements
