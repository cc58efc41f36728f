// The file of the upload store: what is accepted must be JSON by another parser's judgement too,
// and must be the same after it was written and read again.

#include <orvane/bookkeeping/internal/RecordMap.h>
#include <orvane/bookkeeping/internal/UploadRecordJson.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using orvane::UploadRecord;
using orvane::internal::UploadRecordJson;
using Records = orvane::internal::RecordMap<UploadRecord, UploadRecordJson>;

bool isJson(const std::string& text) {
  constexpr unsigned kStrict = rapidjson::kParseValidateEncodingFlag |
                               rapidjson::kParseNumbersAsStringsFlag |
                               rapidjson::kParseIterativeFlag;
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::BaseReaderHandler<> ignoreAll;
  const auto result = rapidjson::Reader().Parse<kStrict>(stream, ignoreAll);
  // Valid, but more than this parser has room for.
  return !result.IsError() || result.Code() == rapidjson::kParseErrorNumberTooBig;
}

std::string written(Records& records) {
  std::string text;
  if (!records.encodeAll()) std::abort();
  const bool whole = records.write([&text](std::string_view part) {
    text += part;
    return true;
  });
  if (!whole) std::abort();
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  auto records = Records::decode(simdjson::padded_string(input));
  if (!records) return 0;
  if (!isJson(input)) std::abort();
  const auto text = written(*records);
  auto again = Records::decode(simdjson::padded_string(text));
  if (!again || again->size() != records->size() || written(*again) != text) std::abort();
  return 0;
}
