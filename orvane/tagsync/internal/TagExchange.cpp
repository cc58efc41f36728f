#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/bookkeeping/internal/UploadStoreFilenames.h>
#include <orvane/platform/internal/Prefetch.h>
#include <orvane/tagging/internal/TagBatch.h>
#include <orvane/tagsync/internal/TagExchange.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace orvane::internal {
namespace {

/// Goes through a large map, where most time would pass waiting for the next asset to come from
/// memory; so what is needed later is asked for now.
class AssetWalk {
 public:
  explicit AssetWalk(const TagsByAsset& tags) : next_(tags.begin()), end_(tags.end()) {}

  /// Appends the identifier of the next asset, if there is one.
  void takeNext(std::vector<std::string_view>& assetIds) {
    if (next_ == end_) return;
    const auto& [assetId, tags] = *next_;
    assetIds.push_back(assetId);
    prefetch(assetId.data());
    prefetch(tags.data(), tags.size() * sizeof(TagWithConfidence));
    if (++next_ != end_) prefetch(&*next_, sizeof *next_);
  }

 private:
  TagsByAsset::const_iterator next_;
  TagsByAsset::const_iterator end_;
};

}  // namespace

Bytes tagObjectOf(const TagsByAsset& tags, std::int64_t ts) {
  constexpr std::size_t kGroup = 128;  // For one question to the store each.
  TagObjectWriter object(ts);
  AssetWalk ahead(tags);
  std::vector<std::string_view> group;
  std::vector<std::string_view> following;
  for (std::size_t i = 0; i < kGroup; ++i) ahead.takeNext(group);
  bool hasRoom = false;
  for (auto asset = tags.begin(); asset != tags.end(); group.swap(following)) {
    following.clear();
    for (const auto& filename : filenamesIn(UploadStore::shared(), group)) {
      ahead.takeNext(following);
      object.append(asset->first, asset->second, filename);
      ++asset;
    }
    if (!std::exchange(hasRoom, true)) object.reserve(tags.size());
  }
  return object.takeBody();
}

RestoredTags restoreTags(TagObjectReader& object, const TagDatabase& database,
                         std::string_view deviceUUID, std::int64_t lastSeen) {
  TagBatch batch(database, std::string(deviceUUID));
  std::int64_t newest = lastSeen;
  for (TagLine line; object.next(line);) {
    if (!line.assetId || !line.tags || !line.ts || *line.ts <= lastSeen) continue;
    newest = std::max(newest, *line.ts);
    batch.add(std::move(*line.assetId), std::move(*line.tags));
  }
  return {.applied = batch.finish(), .newest = newest};
}

AssetsByObjectName assetsByObjectName() {
  AssetsByObjectName assets;
  for (const auto& record : UploadStore::shared().allRecords()) {
    if (!record.filename().empty()) assets.insert_or_assign(record.filename(), record.id());
  }
  return assets;
}

std::int64_t mergeTags(TagObjectReader& object, const TagDatabase& database,
                       std::string_view remoteUUID, const AssetsByObjectName& assets) {
  constexpr std::size_t kMaxTagBytes = 1024;
  TagBatch batch(database, std::string(remoteUUID));
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
  return batch.finish() + skipped;
}

}  // namespace orvane::internal
