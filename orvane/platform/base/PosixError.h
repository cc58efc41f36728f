#pragma once

#include <orvane/Error.h>

#include <string_view>

namespace orvane::platform {

/// The `Error` of the domain `Error::kPosix` for an errno value; `action` says what was tried, for
/// example "open".
[[nodiscard]] Error posixError(int number, std::string_view action);

/// The same for the calling thread's errno.
[[nodiscard]] Error lastPosixError(std::string_view action);

}  // namespace orvane::platform
