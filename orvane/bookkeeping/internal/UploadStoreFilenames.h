#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

class UploadStore;

namespace internal {

/// The `filename` of the record filed under each identifier, in their order; empty where there is
/// no record. Blocks, once for all of them.
[[nodiscard]] std::vector<std::string> filenamesIn(UploadStore& store,
                                                   std::span<const std::string_view> assetIds);

}  // namespace internal
}  // namespace orvane
