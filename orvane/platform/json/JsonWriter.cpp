#include <orvane/platform/json/JsonWriter.h>

#include <orvane/platform/base/Utf8.h>

#include <array>
#include <charconv>
#include <cmath>

namespace orvane::platform {
namespace {

/// RapidJSON counts in 32 bits and makes room for six times a text.
constexpr std::size_t kMaxTextSize = std::size_t{1} << 29;

bool isWholeOf64Bits(double number) {
  constexpr double kLimit = 0x1p63;
  const bool isNegativeZero = number == 0 && std::signbit(number);
  return number >= -kLimit && number < kLimit && std::trunc(number) == number && !isNegativeZero;
}

}  // namespace

void JsonWriter::value(std::string_view text) {
  std::string repaired;
  if (!platform::isUtf8(text)) {
    ok_ = ok_ && badText_ == BadText::repair;
    repaired = platform::repairedUtf8(text);
    text = repaired;
  }
  if (text.size() > kMaxTextSize) {
    ok_ = false;
    text = {};
  }
  writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void JsonWriter::value(double number) {
  if (!std::isfinite(number)) {
    ok_ = false;
    number = 0;
  }
  if (isWholeOf64Bits(number)) return value(static_cast<std::int64_t>(number));
  // The shortest text that reads back as the same number.
  std::array<char, 32> text{};
  const auto* const end = std::to_chars(text.begin(), text.end(), number).ptr;
  writer_.RawValue(text.data(), static_cast<std::size_t>(end - text.data()),
                   rapidjson::kNumberType);
}

void JsonWriter::value(const std::vector<std::string>& texts) {
  writer_.StartArray();
  for (const auto& text : texts) value(text);
  writer_.EndArray();
}

}  // namespace orvane::platform
