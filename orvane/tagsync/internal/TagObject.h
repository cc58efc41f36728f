#pragma once

#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/json/JsonReader.h>
#include <orvane/platform/json/JsonWriter.h>
#include <orvane/tagging/TagWithConfidence.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The tag object of a device: lines of JSON, one for each asset, each ended by one line feed.
///
///     {"asset_id":"A1","tags":[{"tag":"mare","confidence":0.9}],"version":1,"ts":1732320000000,
///      "s3_key":"media/IMG_1.jpg"}
///
/// "ts" is the time of the upload in milliseconds since 1970; "s3_key", the asset's object name, is
/// left out when it is not known.
namespace orvane::tagsync {

class TagObjectWriter {
 public:
  /// `ts` goes into every line.
  explicit TagObjectWriter(std::int64_t ts) : ts_(ts) {}

  /// Appends the asset's line; or nothing, when a text is not UTF-8 or a confidence not finite. An
  /// empty `s3Key` is not known.
  void append(std::string_view assetId, const std::vector<TagWithConfidence>& tags,
              std::string_view s3Key);

  [[nodiscard]] Bytes takeBody() { return std::exchange(body_, {}); }

 private:
  std::int64_t ts_;
  platform::JsonWriter line_;
  Bytes body_;
};

/// What a line says. A member that is missing or of another type is nothing; what it is good for is
/// up to whoever reads the line.
struct TagLine {
  std::optional<std::string> assetId;
  std::optional<std::string> s3Key;
  /// A whole number of 64 bits, however it is written: 5, 5.0 and 50e-1 are the same, 5.5 and
  /// true are none.
  std::optional<std::int64_t> ts;
  /// Nothing also when any element is not an object. Elements without a text "tag" and a number
  /// "confidence" that a double can hold are left out; whole numbers are as good as others.
  std::optional<std::vector<TagWithConfidence>> tags;
};

/// Reads an object that anybody may have written. Of members of one name the last one counts;
/// others than the above are read and forgotten. A line that is not entirely valid JSON (also for a
/// lone surrogate in an escape, or depth beyond 512), or no JSON object, is skipped.
///
/// Takes memory in proportion to the object's size, most of it for the longest line.
class TagObjectReader {
 public:
  explicit TagObjectReader(std::string body);
  TagObjectReader(const TagObjectReader&) = delete;
  TagObjectReader& operator=(const TagObjectReader&) = delete;

  /// Whether the whole object is UTF-8; if not, it is not to be read.
  [[nodiscard]] bool isUtf8() const;

  /// Reads the next line that is a JSON object. False at the end.
  [[nodiscard]] bool next(TagLine& line);

 private:
  [[nodiscard]] bool read(std::string_view text, TagLine& line);

  std::string body_;  ///< With some bytes after its end that the parser may touch.
  std::string_view rest_;
  simdjson::ondemand::parser parser_;
};

}  // namespace orvane::tagsync
