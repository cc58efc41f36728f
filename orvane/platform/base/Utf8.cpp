#include <orvane/platform/base/Utf8.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Written out, where simdjson has the same: that works through objects which are gone when a
// process exits, while queued work may still ask.

namespace orvane::platform {
namespace {

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

bool isWithin(unsigned char byte, unsigned char low, unsigned char high) {
  return byte >= low && byte <= high;
}

/// The length of the well-formed sequence at the start of `bytes`, which is not empty; 0 if none.
std::size_t sequenceLength(std::string_view bytes) {
  const auto byte = [bytes](std::size_t i) {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : static_cast<unsigned char>(0);
  };
  const auto continues = [&byte](std::size_t i) { return isWithin(byte(i), 0x80, 0xBF); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  if (isWithin(lead, 0xC2, 0xDF)) return continues(1) ? 2 : 0;
  if (isWithin(lead, 0xE0, 0xEF)) {
    const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80;   // Below: overlong.
    const unsigned char high = lead == 0xED ? 0x9F : 0xBF;  // Above: surrogates.
    return isWithin(byte(1), low, high) && continues(2) ? 3 : 0;
  }
  if (isWithin(lead, 0xF0, 0xF4)) {
    const unsigned char low = lead == 0xF0 ? 0x90 : 0x80;   // Below: overlong.
    const unsigned char high = lead == 0xF4 ? 0x8F : 0xBF;  // Above: beyond U+10FFFF.
    return isWithin(byte(1), low, high) && continues(2) && continues(3) ? 4 : 0;
  }
  return 0;
}

/// How many bytes at the start are well-formed.
std::size_t wellFormedLength(std::string_view bytes) {
  auto rest = bytes;
  while (!rest.empty()) {
    rest.remove_prefix(asciiLength(rest));
    // The word that is not ASCII, or the last few bytes.
    for (std::size_t i = 0; i < sizeof(std::uint64_t) && !rest.empty(); ++i) {
      const auto length = sequenceLength(rest);
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
    if (isWithin(static_cast<unsigned char>(end.front()), 0x80, 0xBF)) continue;
    return sequenceLength(end) == 0 ? text.substr(0, text.size() - length) : text;
  }
  return text;
}

std::string utf8Of(std::uint32_t codePoint) {
  const auto leading = [codePoint](std::uint32_t mark, unsigned shift) {
    return static_cast<char>(mark | (codePoint >> shift));
  };
  const auto trailing = [codePoint](unsigned shift) {
    return static_cast<char>(0x80U | ((codePoint >> shift) & 0x3FU));
  };
  if (codePoint < 0x80) return {leading(0, 0)};
  if (codePoint < 0x800) return {leading(0xC0, 6), trailing(0)};
  if (codePoint >= 0xD800 && codePoint <= 0xDFFF) return {};
  if (codePoint < 0x10000) return {leading(0xE0, 12), trailing(6), trailing(0)};
  if (codePoint > 0x10FFFF) return {};
  return {leading(0xF0, 18), trailing(12), trailing(6), trailing(0)};
}

}  // namespace orvane::platform
