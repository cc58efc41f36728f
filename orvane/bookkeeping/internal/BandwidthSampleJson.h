#pragma once

#include <orvane/bookkeeping/BandwidthSample.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::bookkeeping {

/// The JSON form of samples: an array of objects with the fields "id", "timestamp" and
/// "bytesPerSecond".
struct BandwidthSampleJson {
  using Samples = std::vector<BandwidthSample>;

  /// The samples in a text that is one array. All three members are required and others ignored.
  /// Nothing when any part is unreadable.
  [[nodiscard]] static std::optional<Samples> decode(std::string_view json);

  /// The samples as one compact array. Nothing when a number in them is not finite.
  [[nodiscard]] static std::optional<std::string> encode(const Samples& samples);
};

}  // namespace orvane::bookkeeping
