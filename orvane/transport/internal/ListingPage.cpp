#include <orvane/transport/internal/ListingPage.h>

#include <orvane/transport/ETag.h>
#include <orvane/transport/NextElement.h>

#include <algorithm>
#include <cstddef>

namespace orvane::transport {
namespace {

constexpr ElementTags kContents{"<Contents>", "</Contents>"};
constexpr ElementTags kKey{"<Key>", "</Key>"};
constexpr ElementTags kETag{"<ETag>", "</ETag>"};
constexpr ElementTags kToken{"<NextContinuationToken>", "</NextContinuationToken>"};

/// LF, VT, FF, CR, and the first bytes of NEL (C2 85), LS (E2 80 A8) and PS (E2 80 A9).
bool mayBeginLineBreak(char c) { return (c >= '\n' && c <= '\r') || c == '\xC2' || c == '\xE2'; }

/// How long the line break is that begins `text`; 0 when none does.
std::size_t lineBreakLength(std::string_view text) {
  if (text.front() >= '\n' && text.front() <= '\r') return 1;
  if (text.starts_with("\xC2\x85")) return 2;
  return text.starts_with("\xE2\x80\xA8") || text.starts_with("\xE2\x80\xA9") ? 3 : 0;
}

/// Where the last line of `text` begins: behind the last line break, at 0 when there is none.
std::size_t lastLine(std::string_view text) {
  // Mostly there is none, and without an early exit the compiler looks at many bytes at a time.
  if (std::ranges::count_if(text, mayBeginLineBreak) == 0) return 0;
  for (auto position = text.size(); position-- > 0;) {
    const auto length = lineBreakLength(text.substr(position));
    if (length > 0) return position + length;
  }
  return 0;
}

/// The text of the first element in `text`.
std::optional<std::string_view> firstElement(std::string_view text, const ElementTags& tags) {
  auto opening = text.find(tags.opening);
  while (opening != std::string_view::npos) {
    const auto start = opening + tags.opening.size();
    const auto end = text.find(tags.closing, start);
    if (end == std::string_view::npos) break;
    const auto content = text.substr(start, end - start);
    const auto line = lastLine(content);
    if (line == 0) return content;
    // The same closing tag serves no element that begins before the line break.
    opening = text.find(tags.opening, start + line);
  }
  return std::nullopt;
}

}  // namespace

std::vector<KeyETagPair> parseKeyETagPairs(std::string_view text) {
  std::vector<KeyETagPair> pairs;
  while (const auto entry = nextElement(text, kContents)) {
    if (const auto key = firstElement(*entry, kKey)) {
      pairs.push_back({std::string(*key), etagFromXml(firstElement(*entry, kETag).value_or(""))});
    }
  }
  return pairs;
}

std::optional<std::string> parseToken(std::string_view text) {
  const auto token = firstElement(text, kToken);
  if (!token || token->empty()) return std::nullopt;
  return std::string(*token);
}

}  // namespace orvane::transport
