#include <orvane/platform/base/Utf8.h>

#include <boost/nowide/utf/utf.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

// Not by simdjson, which is faster: it works through objects that are gone when a process exits,
// while queued work may still ask.

namespace orvane::platform {
namespace {

namespace utf = boost::nowide::utf;
using Utf8 = utf::utf_traits<char>;

/// How many bytes at the start are surely ASCII: all of them, or all words before the first that
/// is not.
std::size_t asciiLength(std::string_view bytes) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::size_t length = 0;
  for (std::uint64_t word = 0; length + sizeof word <= bytes.size(); length += sizeof word) {
    std::memcpy(&word, bytes.data() + length, sizeof word);
    if ((word & kHighBits) != 0) return length;
  }
  return length;
}

/// The length of the well-formed character at the start of `bytes`; 0 if there is none.
std::size_t characterLength(std::string_view bytes) {
  const char* next = bytes.data();
  const auto codePoint = Utf8::decode(next, bytes.data() + bytes.size());
  return utf::is_valid_codepoint(codePoint) ? static_cast<std::size_t>(next - bytes.data()) : 0;
}

/// How many bytes at the start are well-formed.
std::size_t wellFormedLength(std::string_view bytes) {
  auto rest = bytes;
  while (!rest.empty()) {
    rest.remove_prefix(asciiLength(rest));
    // The word that is not ASCII, or the last few bytes.
    for (std::size_t i = 0; i < sizeof(std::uint64_t) && !rest.empty(); ++i) {
      const auto length = characterLength(rest);
      if (length == 0) return bytes.size() - rest.size();
      rest.remove_prefix(length);
    }
  }
  return bytes.size();
}

}  // namespace

bool isUtf8(std::string_view bytes) noexcept { return wellFormedLength(bytes) == bytes.size(); }

std::string repairedUtf8(std::string_view bytes) {
  std::string text;
  for (;;) {
    const auto length = wellFormedLength(bytes);
    text.append(bytes.substr(0, length));
    if (length == bytes.size()) return text;
    text.append("\xEF\xBF\xBD");
    bytes.remove_prefix(length + 1);
  }
}

std::string_view wholeCharacters(std::string_view text) noexcept {
  constexpr std::size_t kLongestCut = 3;
  for (std::size_t length = 1; length <= std::min(kLongestCut, text.size()); ++length) {
    const auto end = text.substr(text.size() - length);
    if (Utf8::is_trail(end.front())) continue;
    return characterLength(end) == 0 ? text.substr(0, text.size() - length) : text;
  }
  return text;
}

std::string utf8Of(std::uint32_t codePoint) {
  std::string text;
  if (utf::is_valid_codepoint(codePoint)) Utf8::encode(codePoint, std::back_inserter(text));
  return text;
}

}  // namespace orvane::platform
