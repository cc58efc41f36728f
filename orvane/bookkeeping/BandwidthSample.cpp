#include <orvane/bookkeeping/BandwidthSample.h>

#include <orvane/platform/base/Uuid.h>

namespace orvane {

BandwidthSample::BandwidthSample(Date timestamp, double bytesPerSecond)
    : id_(platform::randomUuid()), timestamp_(timestamp), bytesPerSecond_(bytesPerSecond) {}

}  // namespace orvane
