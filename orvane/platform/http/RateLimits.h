#pragma once

#include <cstdint>
#include <optional>

namespace orvane {

/// What this process may send to servers and receive from them, all transfers together.
///
///     orvane::setRateLimits({.upload = 1 << 20});   // people want to watch a film meanwhile
struct RateLimits {
  /// Bytes of request bodies per second; less than 1 counts as 1. Without a value there is no
  /// limit.
  std::optional<std::int64_t> upload = {};
  /// The same for the bodies of responses.
  std::optional<std::int64_t> download = {};
};

/// Sets the limits, for transfers under way too. Transfers take turns of equal size; one that waits
/// for its turn does not run into its time-out. Over ten seconds and more the limit is kept to a
/// twentieth, where it is 128 KiB/s or more; below that, the pieces that the system hands over are
/// large beside it. The heads of requests and responses and the connections' own bytes do not
/// count.
///
/// Any thread may call it; returns at once. A child that was forked must not.
void setRateLimits(const RateLimits& limits);

}  // namespace orvane
