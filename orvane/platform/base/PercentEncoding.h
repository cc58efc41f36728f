#pragma once

#include <boost/url/grammar/lut_chars.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace orvane::platform {

/// Characters that percent-encoding leaves as they are; never "%".
using CharacterSet = boost::urls::grammar::lut_chars;

/// What means itself everywhere in a URL: letters, digits and "-._~".
inline constexpr CharacterSet kUrlUnreserved = boost::urls::unreserved_chars;
/// What a URL's path may hold; "/" included.
inline constexpr CharacterSet kUrlPathAllowed = kUrlUnreserved + CharacterSet("!$&'()*+,/:=@");
/// What a value in a URL's query may hold: without "&", "=" and "+", which end it or mean a space.
inline constexpr CharacterSet kUrlQueryValue = kUrlUnreserved + CharacterSet("!$'()*,/:;?@");

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
