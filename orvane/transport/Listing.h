#pragma once

#include <orvane/transport/TalvexAPIService.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// How responses that list objects or parts are read: by plain search in UTF-8 text that need not be
// XML, for tags without attributes, entity references kept as they are. Any thread may call these
// functions; each takes time in proportion to the length of the text, whatever that holds.
namespace orvane::transport {

/// The text between the first "<name>" and the first "</name>" after it; `text` then begins behind
/// the closing tag. Absent, and `text` left alone, when there is no such pair.
///
///     while (const auto part = nextElement(text, "Part")) ...
[[nodiscard]] std::optional<std::string_view> nextElement(std::string_view& text,
                                                          std::string_view name);

/// The value of an ETag header field without its surrounding double quotes.
[[nodiscard]] std::string etagFromHeader(std::string_view value);

/// The text of an ETag element without quotes, escaped ones ("&quot;") included.
[[nodiscard]] std::string etagFromXml(std::string_view text);

/// Key and ETag of each "Contents" element of a page, in order: of the first "Key" element and of
/// the first "ETag" element in it whose text spans no line break. An entry without key is left out;
/// without ETag, that is empty.
[[nodiscard]] std::vector<KeyETagPair> parseKeyETagPairs(std::string_view text);

/// The text of the page's first "NextContinuationToken" element that spans no line break, unless
/// that text is empty.
[[nodiscard]] std::optional<std::string> parseToken(std::string_view text);

}  // namespace orvane::transport
