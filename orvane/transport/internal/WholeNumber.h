#pragma once

#include <charconv>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

namespace orvane::transport {

/// The number that a text of digits alone says; nothing for any other text, and above 2^63 - 1.
[[nodiscard]] inline std::optional<std::int64_t> wholeNumber(std::string_view text) noexcept {
  std::int64_t number = 0;
  const auto* const end = std::to_address(text.end());
  const auto [stop, error] = std::from_chars(std::to_address(text.begin()), end, number);
  if (error != std::errc() || stop != end || text.front() == '-') return std::nullopt;
  return number;
}

}  // namespace orvane::transport
