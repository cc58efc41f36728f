#pragma once

#include <orvane/bookkeeping/Date.h>

#include <string>

namespace orvane {

namespace bookkeeping {
struct BandwidthSampleJson;
}

/// A throughput measured at some moment. A plain value, fixed when it is made.
class BandwidthSample {
 public:
  /// A sample with a new identity; any moment and any number will do.
  BandwidthSample(Date timestamp, double bytesPerSecond);

  /// Tells the sample from every other: a random UUID in upper case.
  [[nodiscard]] const std::string& id() const noexcept { return id_; }
  /// When it was recorded.
  [[nodiscard]] Date timestamp() const noexcept { return timestamp_; }
  /// The throughput as it was given: any number, of bytes in a second.
  [[nodiscard]] double bytesPerSecond() const noexcept { return bytesPerSecond_; }

  friend bool operator==(const BandwidthSample&, const BandwidthSample&) = default;

 private:
  friend struct bookkeeping::BandwidthSampleJson;

  BandwidthSample() = default;

  std::string id_;
  Date timestamp_;
  double bytesPerSecond_ = 0;
};

}  // namespace orvane
