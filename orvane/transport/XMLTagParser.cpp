#include <orvane/transport/XMLTagParser.h>

#include <orvane/platform/base/Utf8.h>

namespace orvane {

std::optional<std::string> XMLTagParser::extractTag(std::string_view tag, ByteView from) {
  const auto text = textOf(from);
  if (!platform::isUtf8(text)) return std::nullopt;
  const std::string opening = "<" + std::string(tag) + ">";
  const std::string closing = "</" + std::string(tag) + ">";
  const auto start = text.find(opening);
  const auto end = text.find(closing);
  if (start == std::string_view::npos || end == std::string_view::npos) return std::nullopt;
  const auto content = start + opening.size();
  if (end < content) return std::nullopt;
  return std::string(text.substr(content, end - content));
}

}  // namespace orvane
