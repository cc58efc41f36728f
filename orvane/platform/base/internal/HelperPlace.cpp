#include <orvane/platform/base/internal/HelperPlace.h>

namespace orvane::platform {

const char* const kHelperPlace = ORVANE_HELPERS;

}  // namespace orvane::platform
