#pragma once

#include <curl/curl.h>

#include <cstdint>

// What really moves on the connections of the client library. Its own figures are not enough to
// tell a slow transfer from a dead one: the kernel may hold megabytes that count as sent, and on a
// slow line they move long after those figures have come to rest; nor do they count a head that
// comes byte by byte.
//
// Everything here belongs to whoever holds the lock of the `TransferLoop`.
namespace orvane::platform {

/// Makes the connections that `easy` opens known to `bytesOnWire`.
void watchSockets(CURL* easy);

/// Bytes that the peer has acknowledged or sent over the connection with this local port; 0 when
/// it cannot be told.
[[nodiscard]] std::uint64_t bytesOnWire(int localPort);

}  // namespace orvane::platform
