#include <orvane/platform/http/RateLimits.h>

#include <orvane/platform/http/internal/TransferLoop.h>

namespace orvane {

void setRateLimits(const RateLimits& limits) {
  platform::TransferLoop::shared().setRates(limits.upload, limits.download);
}

}  // namespace orvane
