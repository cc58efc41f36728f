#pragma once

#include <orvane/Error.h>

#include <filesystem>
#include <string>

namespace orvane::platform {

/// Makes the process trust the authorities whose certificates a PEM file holds, in addition to the
/// system's. Both are read now, and count for every transfer that starts later. Call it once.
///
/// Fails with a POSIX error when the file cannot be read; EINVAL when it holds no certificate, or
/// one that cannot be decoded.
[[nodiscard]] Result<void> trustAuthoritiesIn(const std::filesystem::path& file);

/// All of them as PEM, kept until the process ends; null while there are only the system's.
[[nodiscard]] const std::string* trustedAuthorities();

}  // namespace orvane::platform
