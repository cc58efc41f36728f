#include <orvane/platform/json/JsonWriter.h>

#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/json/JsonNumber.h>

#include <cmath>

namespace orvane::platform {
namespace {

/// RapidJSON counts in 32 bits and makes room for six times a text.
constexpr std::size_t kLongestText = std::size_t{1} << 29;

}  // namespace

void JsonWriter::value(std::string_view text) {
  std::string repaired;
  if (!platform::isUtf8(text)) {
    ok_ = ok_ && badText_ == BadText::repair;
    repaired = platform::repairedUtf8(text);
    text = repaired;
  }
  if (text.size() > kLongestText) {
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
  const NumberText text(number);
  writer_.RawValue(text.view().data(), text.view().size(), rapidjson::kNumberType);
}

void JsonWriter::value(const std::vector<std::string>& texts) {
  writer_.StartArray();
  for (const auto& text : texts) value(text);
  writer_.EndArray();
}

}  // namespace orvane::platform
