#pragma once

#include <string>
#include <string_view>

namespace orvane::transport {

/// The value of an ETag header field without its surrounding double quotes.
[[nodiscard]] std::string etagFromHeader(std::string_view value);

/// The text of an ETag element without quotes, escaped ones included.
[[nodiscard]] std::string etagFromXml(std::string_view text);

}  // namespace orvane::transport
