// The preference that holds the bandwidth samples: what is accepted must be JSON by another
// parser's judgement too, and must be the same after it was written and read again.

#include <orvane/bookkeeping/internal/BandwidthSampleJson.h>

#include "IsJson.h"
#include "Require.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using orvane::bookkeeping::BandwidthSampleJson;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto samples = BandwidthSampleJson::decode(input);
  if (!samples) return 0;
  require(isJson(input));
  const auto text = BandwidthSampleJson::encode(*samples);
  require(text && BandwidthSampleJson::decode(*text) == samples);
  return 0;
}
