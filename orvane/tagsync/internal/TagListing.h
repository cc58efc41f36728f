#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvane::tagsync {

/// The tag object of one device, as a listing of the bucket names it.
struct RemoteTagFile {
  std::string uuid;
  std::string eTag;  ///< Without quotes; empty when the listing gives none.

  friend bool operator==(const RemoteTagFile&, const RemoteTagFile&) = default;
};

/// What follows a device's identifier in the key of its tag object.
inline constexpr std::string_view kTagFileName = "/tags.jsonl";

/// The tag objects in the text of one ListObjects answer, in its order. Keys are taken as they
/// stand, entities and all; those that are not `listPrefix`, one identifier and `kTagFileName` are
/// left out. Never fails and takes linear time, whatever the text.
[[nodiscard]] std::vector<RemoteTagFile> tagFilesInListing(std::string_view text,
                                                           std::string_view listPrefix);

}  // namespace orvane::tagsync
