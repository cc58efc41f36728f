#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvane::platform {

/// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above
/// U+10FFFF.
[[nodiscard]] bool isUtf8(std::string_view bytes) noexcept;

/// The bytes with U+FFFD in place of each one that belongs to no well-formed character.
[[nodiscard]] std::string repairedUtf8(std::string_view bytes);

/// The text without the byte order mark that some editors write before it; one mark, not more.
[[nodiscard]] constexpr std::string_view withoutByteOrderMark(std::string_view text) noexcept {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  return text.starts_with(kMark) ? text.substr(kMark.size()) : text;
}

/// The text without the incomplete character at its end, if it was cut within one.
[[nodiscard]] std::string_view wholeCharacters(std::string_view text) noexcept;

/// The UTF-8 form of one code point; empty for surrogates and above U+10FFFF.
[[nodiscard]] std::string utf8Of(std::uint32_t codePoint);

}  // namespace orvane::platform
