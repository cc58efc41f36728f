#pragma once

#include <cstdint>

namespace orvane::platform {

/// Bytes that the peer of a TCP socket has acknowledged or sent so far; 0 when it cannot be told.
///
/// The kernel may hold megabytes that a client library counts as sent; on a slow line they move
/// long after the library's own figures have come to rest.
[[nodiscard]] std::uint64_t bytesOnWire(int socket) noexcept;

}  // namespace orvane::platform
