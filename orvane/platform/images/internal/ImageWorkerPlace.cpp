#include <orvane/platform/images/internal/ImageWorkerPlace.h>

namespace orvane::platform {

const char* const kImageWorkerPlace = ORVANE_IMAGE_WORKER;

}  // namespace orvane::platform
