#pragma once

#include <orvane/bookkeeping/UploadRecord.h>
#include <orvane/platform/internal/JsonReader.h>
#include <orvane/platform/internal/JsonWriter.h>

namespace orvane::internal {

/// The JSON form of an `UploadRecord`.
struct UploadRecordJson {
  /// A record to read into.
  [[nodiscard]] static UploadRecord blank();

  /// Reads the object into `record`, which must be blank. False leaves it half read.
  [[nodiscard]] static bool read(ondemand::object& object, UploadRecord& record);

  /// Writes the record as one object. False when it has no JSON form.
  [[nodiscard]] static bool write(JsonWriter& writer, const UploadRecord& record);
};

}  // namespace orvane::internal
