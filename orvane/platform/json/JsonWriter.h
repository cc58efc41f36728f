#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::platform {

/// What becomes of a text that is not UTF-8, which JSON cannot express.
enum class BadText : std::uint8_t {
  refuse,
  repair,  ///< It is written with U+FFFD in place of what is wrong.
};

/// Writes compact JSON. A text or a number that JSON cannot express writes a placeholder and clears
/// `ok`; then the text written is of no use.
///
///     JsonWriter writer;
///     writer.beginObject();
///     writer.member("tags", record.tags);
///     writer.endObject();
class JsonWriter {
 public:
  explicit JsonWriter(BadText badText = BadText::refuse) : badText_(badText), writer_(buffer_) {}

  /// Forgets what was written, but not the memory it took.
  void restart() {
    buffer_.Clear();
    writer_.Reset(buffer_);
    ok_ = true;
  }

  void beginObject() { writer_.StartObject(); }
  void endObject() { writer_.EndObject(); }
  void beginArray() { writer_.StartArray(); }
  void endArray() { writer_.EndArray(); }
  void name(std::string_view name) { value(name); }

  void value(std::string_view text);
  void value(std::int64_t number) { writer_.Int64(number); }
  void value(double number);
  void value(bool condition) { writer_.Bool(condition); }
  void value(const std::vector<std::string>& texts);
  void value(const char* text) = delete;  // It would become a bool.

  template <class Value>
  void member(std::string_view memberName, const Value& memberValue) {
    name(memberName);
    value(memberValue);
  }

  [[nodiscard]] bool ok() const { return ok_; }
  /// Valid until the writer is used again.
  [[nodiscard]] std::string_view text() const { return {buffer_.GetString(), buffer_.GetSize()}; }

 private:
  BadText badText_;
  rapidjson::StringBuffer buffer_;
  rapidjson::Writer<rapidjson::StringBuffer> writer_;
  bool ok_ = true;
};

}  // namespace orvane::platform
