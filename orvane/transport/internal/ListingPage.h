#pragma once

#include <orvane/transport/TalvexAPIService.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What one answer to a listing request says, found by plain search in UTF-8 text that need not be
// XML. It reads like the lazy regular expressions "<Contents>[\s\S]*?</Contents>" and, for an
// element, "<Key>(.*?)</Key>": tags without attributes, the nearest closing tag, in the element's
// text no line break of those that Unicode knows, entity references as they are. But the time is
// proportional to the length of the text, whatever that holds.
namespace orvane::transport {

/// Key and ETag of each "Contents", in their order: of the first "Key" element and of the first
/// "ETag" element in it, the latter without quotes, escaped ones included. An entry without key is
/// left out; without ETag, that is empty.
[[nodiscard]] std::vector<KeyETagPair> parseKeyETagPairs(std::string_view text);

/// The text of the first "NextContinuationToken" element, unless it is empty.
[[nodiscard]] std::optional<std::string> parseToken(std::string_view text);

}  // namespace orvane::transport
