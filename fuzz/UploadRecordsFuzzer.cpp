// The file of the upload store.

#include <orvane/bookkeeping/internal/UploadRecordJson.h>

#include "RecordsFuzzer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using orvane::bookkeeping::UploadRecordJson;
  checkRecords<orvane::UploadRecord, UploadRecordJson>({reinterpret_cast<const char*>(data), size});
  return 0;
}
