#include <orvane/tagsync/internal/TagObject.h>

#include <orvane/platform/base/Utf8.h>

#include <algorithm>
#include <utility>

namespace orvane::tagsync {
namespace {

using platform::read;

// The functions below answer false only when the text is not JSON: a value of another type than
// the wanted one is read like any other, and leaves nothing in `result`.

bool isOf(simdjson::ondemand::value& value, simdjson::ondemand::json_type wanted) {
  simdjson::ondemand::json_type type{};
  return !value.type().get(type) && type == wanted;
}

bool readText(simdjson::ondemand::value& value, std::optional<std::string>& result) {
  result.reset();
  if (!isOf(value, simdjson::ondemand::json_type::string)) return platform::readAnything(value);
  std::string_view text;
  if (!read(value, text)) return false;
  result = text;
  return true;
}

template <class Number>
bool readNumber(simdjson::ondemand::value& value, std::optional<Number>& result) {
  result.reset();
  const bool isNumber = isOf(value, simdjson::ondemand::json_type::number);
  if (!platform::readAnything(value)) return false;
  Number number{};
  if (isNumber && read(value, number)) result = number;
  return true;
}

struct Element {
  std::optional<std::string> tag;
  std::optional<double> confidence;
};

bool readTag(simdjson::ondemand::value& value, Element& element) {
  return readText(value, element.tag);
}

bool readConfidence(simdjson::ondemand::value& value, Element& element) {
  return readNumber(value, element.confidence);
}

constexpr platform::Members<Element, 2> kElementMembers{
    {{"tag", false, readTag}, {"confidence", false, readConfidence}}};

bool readElement(simdjson::ondemand::value& value, std::vector<TagWithConfidence>& tags) {
  simdjson::ondemand::object object;
  Element element;
  if (value.get_object().get(object) || !platform::readMembers(object, kElementMembers, element))
    return false;
  if (element.tag && element.confidence) {
    tags.push_back({std::move(*element.tag), *element.confidence});
  }
  return true;
}

bool readTags(simdjson::ondemand::value& value, TagLine& line) {
  line.tags.reset();
  if (!isOf(value, simdjson::ondemand::json_type::array)) return platform::readAnything(value);
  simdjson::ondemand::array array;
  if (value.get_array().get(array)) return false;
  std::vector<TagWithConfidence> tags;
  bool onlyObjects = true;
  for (auto item : array) {
    simdjson::ondemand::value element;
    if (std::move(item).get(element)) return false;
    const bool isObject = isOf(element, simdjson::ondemand::json_type::object);
    if (!(isObject ? readElement(element, tags) : platform::readAnything(element))) return false;
    onlyObjects = onlyObjects && isObject;
  }
  if (onlyObjects) line.tags = std::move(tags);
  return true;
}

constexpr platform::Members<TagLine, 4> kLineMembers{
    {{"asset_id", false, [](auto& value, TagLine& line) { return readText(value, line.assetId); }},
     {"tags", false, readTags},
     {"ts", false, [](auto& value, TagLine& line) { return readNumber(value, line.ts); }},
     {"s3_key", false, [](auto& value, TagLine& line) { return readText(value, line.s3Key); }}}};

}  // namespace

void TagObjectWriter::append(std::string_view assetId, const std::vector<TagWithConfidence>& tags,
                             std::string_view s3Key) {
  line_.restart();
  line_.beginObject();
  line_.member("asset_id", assetId);
  line_.name("tags");
  line_.beginArray();
  for (const auto& [tag, confidence] : tags) {
    line_.beginObject();
    line_.member("tag", std::string_view(tag));
    line_.member("confidence", confidence);
    line_.endObject();
  }
  line_.endArray();
  line_.member("version", std::int64_t{1});
  line_.member("ts", ts_);
  if (!s3Key.empty()) line_.member("s3_key", s3Key);
  line_.endObject();
  if (!line_.ok()) return;
  const auto line = bytesOf(line_.text());
  body_.insert(body_.end(), line.begin(), line.end());
  body_.push_back(std::byte{'\n'});
}

TagObjectReader::TagObjectReader(std::string body) : body_(std::move(body)) {
  const auto size = body_.size();
  body_.append(simdjson::SIMDJSON_PADDING, '\0');
  rest_ = std::string_view(body_).substr(0, size);
}

bool TagObjectReader::isUtf8() const { return platform::isUtf8(rest_); }

bool TagObjectReader::next(TagLine& line) {
  while (!rest_.empty()) {
    const auto text = rest_.substr(0, rest_.find('\n'));
    rest_.remove_prefix(std::min(text.size() + 1, rest_.size()));
    if (!text.empty() && read(text, line)) return true;
  }
  return false;
}

bool TagObjectReader::read(std::string_view text, TagLine& line) {
  line = {};
  const auto* const end = body_.data() + body_.size();
  const simdjson::padded_string_view padded(text.data(), text.size(),
                                            static_cast<std::size_t>(end - text.data()));
  return platform::readDocument(parser_, padded, [&line](simdjson::ondemand::object& object) {
    return platform::readMembers(object, kLineMembers, line);
  });
}

}  // namespace orvane::tagsync
