#include <orvane/bookkeeping/AppSettings.h>

#include <orvane/platform/host/Preferences.h>

#include <string_view>

namespace orvane {
namespace {

constexpr std::string_view kThumbnailGenerationEnabled = "thumbnail_generation_enabled";

}  // namespace

bool AppSettings::isThumbnailGenerationEnabled() {
  return Preferences::shared().boolean(kThumbnailGenerationEnabled).value_or(false);
}

void AppSettings::setThumbnailGenerationEnabled(bool enabled) {
  Preferences::shared().set(kThumbnailGenerationEnabled, enabled);
}

}  // namespace orvane
