// The file of the store of multipart uploads, held to the same as that of the upload records.

#include <orvane/bookkeeping/internal/MultipartStateJson.h>

#include "RecordsFuzzer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using orvane::bookkeeping::MultipartStateJson;
  checkRecords<orvane::MultipartState, MultipartStateJson>(
      {reinterpret_cast<const char*>(data), size});
  return 0;
}
