#include <orvane/bookkeeping/UploadStatus.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace orvane {
namespace {

// In the order of the declaration.
constexpr std::array<std::string_view, 7> kTexts = {"pending",  "uploading", "completed",  "failed",
                                                    "retrying", "excluded",  "remoteAlias"};

}  // namespace

std::string_view uploadStatusText(UploadStatus status) noexcept {
  const auto position = static_cast<std::size_t>(status);
  return position < kTexts.size() ? kTexts[position] : std::string_view();
}

std::optional<UploadStatus> uploadStatusFromText(std::string_view text) noexcept {
  const auto* const found = std::ranges::find(kTexts, text);
  if (found == kTexts.end()) return std::nullopt;
  return static_cast<UploadStatus>(found - kTexts.begin());
}

}  // namespace orvane
