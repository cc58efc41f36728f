#include <orvane/platform/json/JsonReader.h>

#include <orvane/platform/base/Utf8.h>

#include <charconv>
#include <cmath>
#include <cstddef>
#include <system_error>

namespace orvane::platform {
namespace {

constexpr int kMaxDepth = 512;

/// The value as it is written, up to the next token without the space before that.
std::string_view tokenOf(ondemand::value& value) {
  const std::string_view token = value.raw_json_token();
  return token.substr(0, token.find_last_not_of(" \t\n\r") + 1);
}

/// Escapes may stand for halves of surrogate pairs, of which simdjson lets some through. They then
/// begin with the byte ED; everything else has been checked before.
bool isText(std::string_view unescaped) {
  return unescaped.find('\xED') == std::string_view::npos || platform::isUtf8(unescaped);
}

/// Whether `token` is exactly one number of the JSON grammar, whatever its size.
bool isNumber(std::string_view token) {
  const auto take = [&token](std::string_view characters) {
    const bool found = !token.empty() && characters.contains(token.front());
    if (found) token.remove_prefix(1);
    return found;
  };
  const auto takeDigits = [&take] {
    const bool found = take("0123456789");
    while (take("0123456789")) continue;
    return found;
  };
  take("-");
  if (!take("0") && !takeDigits()) return false;
  if (take(".") && !takeDigits()) return false;
  if (take("eE")) {
    take("+-");
    if (!takeDigits()) return false;
  }
  return token.empty();
}

bool readAnything(ondemand::value& value, int depth);

bool readElements(ondemand::value& value, int depth) {
  ondemand::array array;
  if (depth == kMaxDepth || value.get_array().get(array)) return false;
  for (auto item : array) {
    ondemand::value element;
    if (std::move(item).get(element) || !readAnything(element, depth + 1)) return false;
  }
  return true;
}

bool readEntries(ondemand::value& value, int depth) {
  ondemand::object object;
  if (depth == kMaxDepth || value.get_object().get(object)) return false;
  return readMap(object, [depth](std::string_view, ondemand::value& entry) {
    return readAnything(entry, depth + 1);
  });
}

bool readAnything(ondemand::value& value, int depth) {
  ondemand::json_type type{};
  if (value.type().get(type)) return false;
  switch (type) {
    case ondemand::json_type::array:
      return readElements(value, depth);
    case ondemand::json_type::object:
      return readEntries(value, depth);
    case ondemand::json_type::string: {
      std::string_view text;
      return !value.get_string().get(text) && isText(text);
    }
    case ondemand::json_type::number:
      return isNumber(tokenOf(value));
    case ondemand::json_type::boolean: {
      bool ignored = false;
      return read(value, ignored);
    }
    case ondemand::json_type::null:
      return readNull(value);
  }
  return false;
}

}  // namespace

bool read(ondemand::value& value, std::string_view& result) {
  const auto token = tokenOf(value);
  if (token.find('\\') == std::string_view::npos) {
    // Nothing is escaped: the text stands between its quotes.
    ondemand::raw_json_string unused;
    if (value.get_raw_json_string().get(unused)) return false;
    if (token.size() < 2 || token.back() != '"') return false;
    result = token.substr(1, token.size() - 2);
    return true;
  }
  return !value.get_string().get(result) && isText(result);
}

bool read(ondemand::value& value, std::string& result) {
  std::string_view text;
  if (!read(value, text)) return false;
  result = text;
  return true;
}

bool read(ondemand::value& value, std::int64_t& result) {
  if (!value.get_int64().get(result)) return true;
  // Too large, or with a fraction or an exponent that may come to a whole number.
  constexpr double kEnd = 0x1p63;
  if (tokenOf(value).find_first_of(".eE") == std::string_view::npos) return false;
  double number = 0;
  if (!read(value, number) || std::trunc(number) != number) return false;
  if (number < -kEnd || number >= kEnd) return false;
  result = static_cast<std::int64_t>(number);
  return true;
}

bool read(ondemand::value& value, double& result) {
  // Of fractions with more digits than a double holds, simdjson 3.0 misreads some.
  constexpr std::size_t kReliableLength = 18;
  const auto token = tokenOf(value);
  if (token.size() > kReliableLength) {
    if (!isNumber(token)) return false;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), result);
    if (error == std::errc{}) return true;
  }
  return !value.get_double().get(result);
}

bool read(ondemand::value& value, bool& result) { return !value.get_bool().get(result); }

bool read(ondemand::value& value, std::vector<std::string>& result) {
  ondemand::array array;
  std::size_t count = 0;
  if (value.get_array().get(array) || array.count_elements().get(count)) return false;
  result.clear();
  result.reserve(count);
  for (auto item : array) {
    ondemand::value element;
    if (std::move(item).get(element) || !read(element, result.emplace_back())) return false;
  }
  return true;
}

bool readNull(ondemand::value& value) {
  bool isNull = false;
  return !value.is_null().get(isNull) && isNull;
}

bool readAnything(ondemand::value& value) { return readAnything(value, 0); }

simdjson::padded_string_view documentIn(simdjson::padded_string_view text) {
  const auto rest = withoutByteOrderMark(text);
  const bool marked = withoutByteOrderMark(rest).size() != rest.size();
  const auto skipped = static_cast<std::size_t>(rest.data() - text.data());
  return simdjson::padded_string_view(rest.data(), marked ? 0 : rest.size(),
                                      text.capacity() - skipped);
}

std::optional<std::string_view> nameOf(ondemand::field& field) {
  std::string_view name;
  if (field.unescaped_key().get(name) || !isText(name)) return std::nullopt;
  return name;
}

}  // namespace orvane::platform
