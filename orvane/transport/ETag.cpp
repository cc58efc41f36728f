#include <orvane/transport/ETag.h>

#include <orvane/platform/base/Ascii.h>

namespace orvane::transport {

std::string etagFromHeader(std::string_view value) {
  return std::string(platform::trimmed(value, '"'));
}

std::string etagFromXml(std::string_view text) {
  constexpr std::string_view kEscapedQuote = "&quot;";
  std::string plain;
  for (std::size_t found = 0; (found = text.find(kEscapedQuote)) != std::string_view::npos;) {
    plain.append(text.substr(0, found));
    text.remove_prefix(found + kEscapedQuote.size());
  }
  plain.append(text);
  return etagFromHeader(plain);
}

}  // namespace orvane::transport
