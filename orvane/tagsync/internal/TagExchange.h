#pragma once

#include <orvane/platform/base/Bytes.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/internal/TagObject.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

/// What passes between the stores of this device and tag objects. Everything here blocks on the
/// stores.
namespace orvane::tagsync {

/// This device's tag object: a line for each asset that has a JSON form, with the object name that
/// its upload record gives. `ts` is the time of the upload in milliseconds since 1970.
[[nodiscard]] Bytes tagObjectOf(const TagsByAsset& tags, std::int64_t ts);

struct RestoredTags {
  std::int64_t applied = 0;
  std::int64_t newest = 0;  ///< The greatest "ts" of the records applied, at least `lastSeen`.
};

/// Applies the records of this device's own object that are newer than `lastSeen`. Tags that cannot
/// be written count as applied.
[[nodiscard]] RestoredTags restoreTags(TagObjectReader& object, const TagDatabase& database,
                                       std::string_view deviceUUID, std::int64_t lastSeen);

/// From object name to the asset of this device that was uploaded under it.
using AssetsByObjectName = std::unordered_map<std::string, std::string>;

/// By all upload records with a `filename`; of those with the same one the last counts.
[[nodiscard]] AssetsByObjectName assetsByObjectName();

struct MergedTags {
  std::int64_t applied = 0;  ///< Also those that could not be written.
  /// False when tags were lost because another process held the database's lock.
  bool triedAll = true;
};

/// Applies another device's object to the assets of this device that it means, under that device's
/// identifier. A tag of more than 1,024 bytes is not written.
[[nodiscard]] MergedTags mergeTags(TagObjectReader& object, const TagDatabase& database,
                                   std::string_view remoteUUID, const AssetsByObjectName& assets);

}  // namespace orvane::tagsync
