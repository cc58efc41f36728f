#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace orvane::platform {

/// The lower-case form of an ASCII letter; every other byte as it is. Independent of the locale.
[[nodiscard]] constexpr char lowered(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/// `text` with its ASCII letters in lower case.
[[nodiscard]] inline std::string lowered(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](char c) { return lowered(c); });
  return result;
}

/// Whether two texts are equal but for the case of ASCII letters.
[[nodiscard]] inline bool equalIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::ranges::equal(a, b, [](char x, char y) { return lowered(x) == lowered(y); });
}

/// `text` without the `c` characters at both ends.
[[nodiscard]] constexpr std::string_view trimmed(std::string_view text, char c) noexcept {
  while (text.starts_with(c)) text.remove_prefix(1);
  while (text.ends_with(c)) text.remove_suffix(1);
  return text;
}

}  // namespace orvane::platform
