// The file of the upload store: what is accepted must be JSON by another parser's judgement too,
// and must be the same after it was written and read again.

#include <orvane/bookkeeping/internal/RecordMap.h>
#include <orvane/bookkeeping/internal/UploadRecordJson.h>

#include "IsJson.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using orvane::UploadRecord;
using orvane::bookkeeping::UploadRecordJson;
using Records = orvane::bookkeeping::RecordMap<UploadRecord, UploadRecordJson>;

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
