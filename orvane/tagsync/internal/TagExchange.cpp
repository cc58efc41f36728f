#include <orvane/tagsync/internal/TagExchange.h>

#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/tagging/TagBatch.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace orvane::tagsync {
namespace {

/// The asset's object name; empty when the store has no record of it.
std::string objectNameOf(const std::string& assetId) {
  const auto record = UploadStore::shared().record(assetId);
  return record ? record->filename() : std::string();
}

}  // namespace

Bytes tagObjectOf(const TagsByAsset& tags, std::int64_t ts) {
  TagObjectWriter object(ts);
  for (const auto& [assetId, ofAsset] : tags) {
    object.append(assetId, ofAsset, objectNameOf(assetId));
  }
  return object.takeBody();
}

RestoredTags restoreTags(TagObjectReader& object, const TagDatabase& database,
                         std::string_view deviceUUID, std::int64_t lastSeen) {
  tagging::TagBatch batch(database, std::string(deviceUUID));
  std::int64_t newest = lastSeen;
  for (TagLine line; object.next(line);) {
    if (!line.assetId || !line.tags || !line.ts || *line.ts <= lastSeen) continue;
    newest = std::max(newest, *line.ts);
    batch.add(std::move(*line.assetId), std::move(*line.tags));
  }
  return {.applied = batch.finish().added, .newest = newest};
}

AssetsByObjectName assetsByObjectName() {
  AssetsByObjectName assets;
  for (const auto& record : UploadStore::shared().allRecords()) {
    if (!record.filename().empty()) assets.insert_or_assign(record.filename(), record.id());
  }
  return assets;
}

MergedTags mergeTags(TagObjectReader& object, const TagDatabase& database,
                     std::string_view remoteUUID, const AssetsByObjectName& assets) {
  constexpr std::size_t kMaxTagBytes = 1024;
  tagging::TagBatch batch(database, std::string(remoteUUID));
  std::int64_t skipped = 0;
  for (TagLine line; object.next(line);) {
    if (!line.s3Key || !line.tags) continue;
    const auto asset = assets.find(*line.s3Key);
    if (asset == assets.end()) continue;
    // Each comparison with a long tag in the indexes takes as long as reading it.
    skipped += static_cast<std::int64_t>(std::erase_if(
        *line.tags, [](const TagWithConfidence& tag) { return tag.tag.size() > kMaxTagBytes; }));
    batch.add(asset->second, std::move(*line.tags));
  }
  const auto [added, triedAll] = batch.finish();
  return {.applied = added + skipped, .triedAll = triedAll};
}

}  // namespace orvane::tagsync
