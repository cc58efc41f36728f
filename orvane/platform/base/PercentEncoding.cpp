#include <orvane/platform/base/PercentEncoding.h>

#include <orvane/platform/base/Utf8.h>

#include <algorithm>

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
  for (std::size_t start = 0; start < text.size();) {
    const auto percent = std::min(text.find('%', start), text.size());
    output.append(text, start, percent - start);
    if (percent == text.size()) break;
    const int byte = byteAt(text, percent);
    complete = complete && byte >= 0;
    output.push_back(byte >= 0 ? static_cast<char>(byte) : '%');
    start = percent + (byte >= 0 ? 3 : 1);
  }
  return complete;
}

}  // namespace

void appendPercentEncoded(std::string& output, std::string_view text, const CharacterSet& allowed) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto isAllowed = [&](char c) { return allowed.contains(c); };
  while (!text.empty()) {
    const auto run = std::ranges::find_if_not(text, isAllowed) - text.begin();
    const auto length = static_cast<std::size_t>(run);
    output.append(text.substr(0, length));
    if (length == text.size()) break;
    const auto byte = static_cast<unsigned char>(text[length]);
    output.append({'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]});
    text.remove_prefix(length + 1);
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
