#include <orvane/platform/base/PercentEncoding.h>

#include <orvane/platform/base/Utf8.h>

#include <boost/url/encode.hpp>

#include <algorithm>
#include <charconv>

namespace orvane::platform {
namespace {

/// Decodes into `output`; returns whether every "%" began a triple.
bool decode(std::string_view text, std::string& output) {
  bool complete = true;
  output.reserve(text.size());
  while (!text.empty()) {
    const auto percent = std::min(text.find('%'), text.size());
    output.append(text.substr(0, percent));
    text.remove_prefix(percent);
    if (text.empty()) break;
    const auto digits = text.substr(1, 2);
    unsigned char byte = '%';
    const auto* const end = std::from_chars(digits.begin(), digits.end(), byte, 16).ptr;
    const bool isTriple = end == digits.begin() + 2;
    complete = complete && isTriple;
    output.push_back(isTriple ? static_cast<char>(byte) : '%');
    text.remove_prefix(isTriple ? 3 : 1);
  }
  return complete;
}

}  // namespace

void appendPercentEncoded(std::string& output, std::string_view text, const CharacterSet& allowed) {
  const auto start = output.size();
  const auto length = boost::urls::encoded_size(text, allowed);
  output.resize(start + length);
  boost::urls::encode(output.data() + start, length, text, allowed);
}

std::string percentEncode(std::string_view text, const CharacterSet& allowed) {
  std::string output;
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
