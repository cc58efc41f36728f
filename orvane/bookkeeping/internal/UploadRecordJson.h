#pragma once

#include <orvane/bookkeeping/UploadRecord.h>
#include <orvane/platform/json/JsonReader.h>
#include <orvane/platform/json/JsonWriter.h>

namespace orvane::bookkeeping {

/// The JSON form of an `UploadRecord`.
struct UploadRecordJson {
  /// A record to read into.
  [[nodiscard]] static UploadRecord blank();

  /// Reads the object into `record`, which must be blank. False leaves it half read.
  [[nodiscard]] static bool read(simdjson::ondemand::object& object, UploadRecord& record);

  /// Writes the record as one object. False when it has no JSON form.
  [[nodiscard]] static bool write(platform::JsonWriter& writer, const UploadRecord& record);
};

}  // namespace orvane::bookkeeping
