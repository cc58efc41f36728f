#pragma once

#include <orvane/platform/base/Bytes.h>

#include <array>
#include <cstddef>

namespace orvane::platform {

using Md5Digest = std::array<std::byte, 16>;

/// MD5 (RFC 1321), for comparing with the ETags of object stores: it protects against nobody who
/// means harm. Any thread may call it.
[[nodiscard]] Md5Digest md5(ByteView data);

}  // namespace orvane::platform
