#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::platform {

/// A set of ASCII characters that percent-encoding leaves as they are.
class CharacterSet {
 public:
  constexpr explicit CharacterSet(std::string_view punctuation) {
    for (char c = '0'; c <= '9'; ++c) add(c);
    for (char c = 'A'; c <= 'Z'; ++c) add(c);
    for (char c = 'a'; c <= 'z'; ++c) add(c);
    for (const char c : punctuation) add(c);
  }

  [[nodiscard]] constexpr bool contains(char c) const noexcept {
    return members_[static_cast<unsigned char>(c)];
  }

 private:
  constexpr void add(char c) { members_[static_cast<unsigned char>(c)] = true; }
  std::array<bool, 256> members_{};
};

/// What a URL's path may hold; "/" included.
inline constexpr CharacterSet kUrlPathAllowed{"!$&'()*+,-./:=@_~"};
/// What a value in a URL's query may hold: without "&", "=" and "+", which end it or mean a space.
inline constexpr CharacterSet kUrlQueryValue{"!$'()*,-./:;?@_~"};
/// What means itself everywhere in a URL.
inline constexpr CharacterSet kUrlUnreserved{"-._~"};

/// `text` with every byte outside `allowed` as "%" and two upper-case hexadecimal digits.
[[nodiscard]] std::string percentEncode(std::string_view text, const CharacterSet& allowed);

/// The same, appended to `output`.
void appendPercentEncoded(std::string& output, std::string_view text, const CharacterSet& allowed);

/// `text` with every "%" and two hexadecimal digits replaced by the byte they stand for; a "%"
/// that begins no such triple is kept.
[[nodiscard]] std::string percentDecode(std::string_view text);

/// As `percentDecode`, but absent when a "%" begins no triple or the result is not UTF-8.
[[nodiscard]] std::optional<std::string> percentDecodeText(std::string_view text);

}  // namespace orvane::platform
