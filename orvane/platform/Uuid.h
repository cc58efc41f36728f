#pragma once

#include <string>

namespace orvane::platform {

/// A new random (version 4) UUID as text: 36 characters, upper-case hexadecimal digits in groups of
/// 8, 4, 4, 4 and 12 with "-" between them. Any thread may call it. Throws `std::system_error` when
/// the system has no random numbers to give, which no running Linux lacks.
[[nodiscard]] std::string randomUuid();

}  // namespace orvane::platform
