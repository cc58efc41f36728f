#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane::platform {

/// A new random (version 4) UUID as text: 36 characters, upper-case hexadecimal digits in groups of
/// 8, 4, 4, 4 and 12 with "-" between them. Any thread may call it. Throws `std::runtime_error`
/// when the system has no random numbers to give, which no running Linux lacks.
[[nodiscard]] std::string randomUuid();

/// The UUID that a text of that form says, in upper case; nothing for any other text.
[[nodiscard]] std::optional<std::string> uuidFrom(std::string_view text);

}  // namespace orvane::platform
