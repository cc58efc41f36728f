#include <orvane/transport/Listing.h>

#include <orvane/platform/base/Ascii.h>

#include <boost/algorithm/string/erase.hpp>

#include <algorithm>
#include <cstddef>

namespace orvane::transport {
namespace {

constexpr auto kNone = std::string_view::npos;

std::string openingTag(std::string_view name) { return "<" + std::string(name) + ">"; }
std::string closingTag(std::string_view name) { return "</" + std::string(name) + ">"; }

/// LF, VT, FF, CR, NEL, LS or PS: what "." does not match in the expression below.
bool beginsWithLineBreak(std::string_view text) {
  const char first = text.front();
  if (first == '\xC2') return text.starts_with("\xC2\x85");
  if (first == '\xE2') return text.starts_with("\xE2\x80\xA8") || text.starts_with("\xE2\x80\xA9");
  return first >= '\n' && first <= '\r';
}

std::size_t firstLineBreak(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (beginsWithLineBreak(text.substr(i))) return i;
  }
  return kNone;
}

/// What the group of the regular expression "<name>(.*?)</name>" matches first, in one scan: from
/// an opening tag the expression reaches the nearest closing tag unless a line break comes before,
/// and then no opening tag in front of that line break reaches it either.
std::optional<std::string_view> elementOfOneLine(std::string_view text, std::string_view name) {
  const auto opening = openingTag(name);
  const auto closing = closingTag(name);
  std::size_t end = 0;
  for (auto found = text.find(opening); found != kNone;) {
    const auto start = found + opening.size();
    end = text.find(closing, std::max(start, end));
    if (end == kNone) break;
    const auto content = text.substr(start, end - start);
    const auto lineBreak = firstLineBreak(content);
    if (lineBreak == kNone) return content;
    found = text.find(opening, start + lineBreak);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string_view> nextElement(std::string_view& text, std::string_view name) {
  const auto opening = openingTag(name);
  const auto closing = closingTag(name);
  const auto found = text.find(opening);
  if (found == kNone) return std::nullopt;
  const auto start = found + opening.size();
  const auto end = text.find(closing, start);
  if (end == kNone) return std::nullopt;
  const auto element = text.substr(start, end - start);
  text.remove_prefix(end + closing.size());
  return element;
}

std::string etagFromHeader(std::string_view value) {
  return std::string(platform::trimmed(value, '"'));
}

std::string etagFromXml(std::string_view text) {
  return etagFromHeader(boost::erase_all_copy(std::string(text), "&quot;"));
}

std::vector<KeyETagPair> parseKeyETagPairs(std::string_view text) {
  std::vector<KeyETagPair> pairs;
  while (const auto entry = nextElement(text, "Contents")) {
    if (const auto key = elementOfOneLine(*entry, "Key")) {
      const auto eTag = elementOfOneLine(*entry, "ETag").value_or("");
      pairs.push_back({.key = std::string(*key), .eTag = etagFromXml(eTag)});
    }
  }
  return pairs;
}

std::optional<std::string> parseToken(std::string_view text) {
  const auto token = elementOfOneLine(text, "NextContinuationToken");
  if (!token || token->empty()) return std::nullopt;
  return std::string(*token);
}

}  // namespace orvane::transport
