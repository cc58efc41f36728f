#pragma once

#include <orvane/platform/base/Bytes.h>

#include <array>
#include <cstddef>
#include <string>

namespace orvane::platform {

/// The 32 bytes of a SHA-256 or HMAC-SHA256.
using Digest = std::array<std::byte, 32>;

/// SHA-256 (FIPS 180-4). Any thread may call it.
[[nodiscard]] Digest sha256(ByteView data);

/// HMAC-SHA256 (RFC 2104). Any thread may call it.
[[nodiscard]] Digest hmacSha256(ByteView key, ByteView data);

/// Two lower-case hexadecimal digits per byte, no separators.
[[nodiscard]] std::string hexString(ByteView bytes);

}  // namespace orvane::platform
