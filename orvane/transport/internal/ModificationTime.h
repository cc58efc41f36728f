#pragma once

#include <orvane/platform/http/HttpHeaders.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

// The modification time of a file, which an object carries as metadata.
namespace orvane::transport {

using FileTime = std::chrono::sys_time<std::chrono::nanoseconds>;

/// The field's value is seconds since 1970 with a decimal fraction, as other backup programs have
/// it too.
inline constexpr std::string_view kModificationTimeField = "x-amz-meta-mtime";

[[nodiscard]] std::string modificationTimeText(FileTime time);

/// Nothing where the field is missing or no time of 1678 to 2261.
[[nodiscard]] std::optional<FileTime> modificationTimeIn(const HttpHeaders& headers);

}  // namespace orvane::transport
