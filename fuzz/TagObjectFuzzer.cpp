// A tag object from another device: every line that is accepted must be JSON by another parser's
// judgement too, and must be the same after it was written and read again.

#include <orvane/tagsync/internal/TagObject.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using orvane::internal::TagLine;
using orvane::internal::TagObjectReader;
using orvane::internal::TagObjectWriter;

bool isJson(std::string_view text) {
  constexpr unsigned kStrict = rapidjson::kParseValidateEncodingFlag |
                               rapidjson::kParseNumbersAsStringsFlag |
                               rapidjson::kParseIterativeFlag;
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::BaseReaderHandler<> ignoreAll;
  const auto result = rapidjson::Reader().Parse<kStrict>(stream, ignoreAll);
  // Valid, but more than this parser has room for.
  return !result.IsError() || result.Code() == rapidjson::kParseErrorNumberTooBig;
}

void require(bool condition) {
  if (!condition) std::abort();
}

/// Writes what has been read, and reads it again.
void checkRoundTrip(const TagLine& line) {
  if (!line.assetId || !line.tags || !line.ts) return;
  TagObjectWriter writer(*line.ts);
  writer.append(*line.assetId, *line.tags, line.s3Key.value_or(""));
  TagObjectReader reader{std::string(orvane::textOf(writer.takeBody()))};
  TagLine again;
  require(reader.next(again));
  require(again.assetId == line.assetId && again.tags == line.tags && again.ts == line.ts);
  require(again.s3Key.value_or("") == line.s3Key.value_or(""));
  require(!reader.next(again));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  TagObjectReader reader(input);
  if (!reader.isUtf8()) return 0;
  std::size_t accepted = 0;
  for (TagLine line; reader.next(line); ++accepted) checkRoundTrip(line);

  std::size_t valid = 0;
  for (std::string_view rest = input; !rest.empty();) {
    const auto line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (isJson(line)) ++valid;
  }
  require(accepted <= valid);
  return 0;
}
