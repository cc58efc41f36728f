#include <orvane/platform/json/JsonNumber.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace orvane::platform {
namespace {

/// A number as it is written: (-) whole . fraction e exponent.
struct Parts {
  bool negative = false;
  std::string_view whole;
  std::string_view fraction;
  std::string_view exponent;  ///< Its digits, after a minus sign where there is one.
};

std::string_view takeDigits(std::string_view& rest) {
  const auto digits = rest.substr(0, rest.find_first_not_of("0123456789"));
  rest.remove_prefix(digits.size());
  return digits;
}

bool take(char character, std::string_view& rest) {
  const bool found = rest.starts_with(character);
  if (found) rest.remove_prefix(1);
  return found;
}

std::optional<Parts> partsOf(std::string_view rest) {
  Parts parts;
  parts.negative = take('-', rest);
  parts.whole = takeDigits(rest);
  if (parts.whole.empty() || (parts.whole.size() > 1 && parts.whole.front() == '0')) return {};
  if (take('.', rest)) {
    parts.fraction = takeDigits(rest);
    if (parts.fraction.empty()) return {};
  }
  if (take('e', rest) || take('E', rest)) {
    parts.exponent = rest;
    if (take('+', rest)) {
      parts.exponent = rest;
    } else {
      take('-', rest);
    }
    if (takeDigits(rest).empty()) return {};
  }
  if (!rest.empty()) return {};
  return parts;
}

template <class Integer>
std::optional<Integer> integerIn(std::string_view text) {
  Integer value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return {};
  return value;
}

bool isWholeOf64Bits(double number) {
  constexpr double kLimit = 0x1p63;
  const bool isNegativeZero = number == 0 && std::signbit(number);
  return number >= -kLimit && number < kLimit && std::trunc(number) == number && !isNegativeZero;
}

}  // namespace

bool isJsonNumber(std::string_view token) { return partsOf(token).has_value(); }

std::optional<std::int64_t> wholeNumber(std::string_view token) {
  const auto parts = partsOf(token);
  if (!parts) return {};
  std::string digits(parts->whole);
  digits += parts->fraction;
  const auto last = digits.find_last_not_of('0');
  if (last == std::string::npos) return 0;

  // Of a number that is not zero, an exponent of more than 32 bits leaves nothing or far too much.
  const auto exponent = parts->exponent.empty() ? 0 : integerIn<std::int32_t>(parts->exponent);
  if (!exponent) return {};
  const std::int64_t zeros = *exponent + static_cast<std::int64_t>(digits.size() - 1 - last) -
                             static_cast<std::int64_t>(parts->fraction.size());
  digits = digits.substr(0, last + 1);
  digits.erase(0, digits.find_first_not_of('0'));
  constexpr auto kMostDigits = std::numeric_limits<std::int64_t>::digits10 + 1;
  if (zeros < 0 || zeros > kMostDigits) return {};
  digits.append(static_cast<std::size_t>(zeros), '0');
  return integerIn<std::int64_t>(parts->negative ? "-" + digits : digits);
}

NumberText::NumberText(double number) {
  char* const begin = characters_.data();
  char* const end = begin + characters_.size();
  const auto written = isWholeOf64Bits(number)
                           ? std::to_chars(begin, end, static_cast<std::int64_t>(number))
                           : std::to_chars(begin, end, number);
  length_ = static_cast<std::size_t>(written.ptr - begin);
}

}  // namespace orvane::platform
