#include <orvane/platform/Utf8.h>
#include <orvane/platform/internal/JsonNumber.h>
#include <orvane/tagsync/internal/TagObject.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

namespace orvane::internal {
namespace {

using internal::read;

/// Whether the text stands in JSON as it is.
bool isPlain(std::string_view text) {
  bool plain = true;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);  // `char` is not signed everywhere.
    plain &= byte >= 0x20 && byte < 0x80 && c != '"' && c != '\\';
  }
  return plain;
}

// The functions below answer false only when the text is not JSON: a value of another type than
// the wanted one is read like any other, and leaves nothing in `result`.

bool isOf(ondemand::value& value, ondemand::json_type wanted) {
  ondemand::json_type type{};
  return !value.type().get(type) && type == wanted;
}

bool readText(ondemand::value& value, std::optional<std::string>& result) {
  result.reset();
  if (!isOf(value, ondemand::json_type::string)) return readAnything(value);
  std::string_view text;
  if (!read(value, text)) return false;
  result = text;
  return true;
}

template <class Number>
bool readNumber(ondemand::value& value, std::optional<Number>& result) {
  result.reset();
  const bool isNumber = isOf(value, ondemand::json_type::number);
  if (!readAnything(value)) return false;
  Number number{};
  if (isNumber && read(value, number)) result = number;
  return true;
}

struct Element {
  std::optional<std::string> tag;
  std::optional<double> confidence;
};

bool readTag(ondemand::value& value, Element& element) { return readText(value, element.tag); }

bool readConfidence(ondemand::value& value, Element& element) {
  return readNumber(value, element.confidence);
}

constexpr Members<Element, 2> kElementMembers{
    {{"tag", false, readTag}, {"confidence", false, readConfidence}}};

bool readElement(ondemand::value& value, std::vector<TagWithConfidence>& tags) {
  ondemand::object object;
  Element element;
  if (value.get_object().get(object) || !readMembers(object, kElementMembers, element))
    return false;
  if (element.tag && element.confidence) {
    tags.push_back({std::move(*element.tag), *element.confidence});
  }
  return true;
}

bool readTags(ondemand::value& value, TagLine& line) {
  line.tags.reset();
  if (!isOf(value, ondemand::json_type::array)) return readAnything(value);
  ondemand::array array;
  if (value.get_array().get(array)) return false;
  std::vector<TagWithConfidence> tags;
  bool onlyObjects = true;
  for (auto item : array) {
    ondemand::value element;
    if (std::move(item).get(element)) return false;
    const bool isObject = isOf(element, ondemand::json_type::object);
    if (!(isObject ? readElement(element, tags) : readAnything(element))) return false;
    onlyObjects = onlyObjects && isObject;
  }
  if (onlyObjects) line.tags = std::move(tags);
  return true;
}

constexpr Members<TagLine, 4> kLineMembers{
    {{"asset_id", false, [](auto& value, TagLine& line) { return readText(value, line.assetId); }},
     {"tags", false, readTags},
     {"ts", false, [](auto& value, TagLine& line) { return readNumber(value, line.ts); }},
     {"s3_key", false, [](auto& value, TagLine& line) { return readText(value, line.s3Key); }}}};

}  // namespace

TagObjectWriter::TagObjectWriter(std::int64_t ts)
    : afterTags_(R"(],"version":1,"ts":)" + std::to_string(ts)) {}

void TagObjectWriter::append(std::string_view assetId, const std::vector<TagWithConfidence>& tags,
                             std::string_view s3Key) {
  length_ = 0;
  ok_ = true;
  add(R"({"asset_id":")");
  addText(assetId);
  add(R"(","tags":[)");
  addTags(tags);
  add(afterTags_);
  if (!s3Key.empty()) {
    add(R"(,"s3_key":")");
    addText(s3Key);
    add("\"");
  }
  add("}\n");
  if (!ok_) return;
  const auto bytes = std::as_bytes(std::span(line_).first(length_));
  body_.insert(body_.end(), bytes.begin(), bytes.end());
  ++lines_;
}

void TagObjectWriter::addTags(const std::vector<TagWithConfidence>& tags) {
  for (const auto& [tag, confidence] : tags) {
    add(R"({"tag":")");
    addText(tag);
    add(R"(","confidence":)");
    addNumber(confidence);
    add("},");
  }
  if (!tags.empty()) --length_;  // The last comma.
}

void TagObjectWriter::reserve(std::size_t lines) {
  constexpr std::size_t kMost = std::size_t{64} << 20;
  if (lines_ == 0) return;
  const auto length = body_.size() / lines_ + 1;
  body_.reserve(std::min(kMost, length * std::min(kMost, lines + lines / 64)));
}

inline char* TagObjectWriter::extend(std::size_t size) {
  if (line_.size() - length_ < size) line_.resize(2 * (length_ + size));
  return line_.data() + std::exchange(length_, length_ + size);
}

void TagObjectWriter::addText(std::string_view text) {
  if (isPlain(text)) return add(text);
  escaper_.restart();
  escaper_.value(text);
  ok_ = ok_ && escaper_.ok();
  const auto quoted = escaper_.text();
  add(quoted.substr(1, quoted.size() - 2));
}

void TagObjectWriter::addNumber(double number) {
  if (!std::isfinite(number)) {
    ok_ = false;
    return;
  }
  add(NumberText(number).view());
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
  return readDocument(parser_, padded, [&line](ondemand::object& object) {
    return readMembers(object, kLineMembers, line);
  });
}

}  // namespace orvane::internal
