#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace orvane::platform {

/// The time that the value of a header field like `Date` or `Last-Modified` says, to the second.
/// Nothing for a time before 2000 or from 2200 on, which no server means and clocks overflow by.
/// Any thread may call it.
[[nodiscard]] std::optional<std::chrono::sys_seconds> httpDate(const std::string& value);

}  // namespace orvane::platform
