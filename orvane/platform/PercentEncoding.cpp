#include <orvane/platform/PercentEncoding.h>
#include <orvane/platform/Utf8.h>

namespace orvane::platform {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

/// The byte that the triple at `position` stands for, or -1.
int byteAt(std::string_view text, std::size_t position) {
  if (position + 2 >= text.size()) return -1;
  const int high = hexValue(text[position + 1]);
  const int low = hexValue(text[position + 2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

/// Decodes into `output`; returns whether every "%" began a triple.
bool decode(std::string_view text, std::string& output) {
  bool complete = true;
  output.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int byte = text[i] == '%' ? byteAt(text, i) : -1;
    if (byte >= 0) {
      output.push_back(static_cast<char>(byte));
      i += 2;
    } else {
      complete = complete && text[i] != '%';
      output.push_back(text[i]);
    }
  }
  return complete;
}

}  // namespace

void appendPercentEncoded(std::string& output, std::string_view text, const CharacterSet& allowed) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (const char c : text) {
    if (allowed.contains(c)) {
      output.push_back(c);
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    output.push_back('%');
    output.push_back(kDigits[byte >> 4U]);
    output.push_back(kDigits[byte & 0xFU]);
  }
}

std::string percentEncode(std::string_view text, const CharacterSet& allowed) {
  std::string output;
  output.reserve(text.size());
  appendPercentEncoded(output, text, allowed);
  return output;
}

std::string percentDecode(std::string_view text) {
  std::string output;
  decode(text, output);
  return output;
}

std::optional<std::string> percentDecodeText(std::string_view text) {
  std::string output;
  if (!decode(text, output) || !isUtf8(output)) return std::nullopt;
  return output;
}

}  // namespace orvane::platform
