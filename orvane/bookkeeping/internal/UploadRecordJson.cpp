#include <orvane/bookkeeping/internal/UploadRecordJson.h>

namespace orvane::bookkeeping {
namespace {

using platform::read;

bool read(simdjson::ondemand::value& value, UploadStatus& result) {
  std::string text;
  if (!read(value, text)) return false;
  const auto status = uploadStatusFromText(text);
  if (status) result = *status;
  return status.has_value();
}

bool read(simdjson::ondemand::value& value, Date& result) {
  return read(value, result.secondsSinceReferenceDate);
}

template <class Value>
bool read(simdjson::ondemand::value& value, std::optional<Value>& result) {
  return read(value, result.emplace());
}

template <auto field>
constexpr platform::Member<UploadRecord> required(std::string_view name) {
  return {name, true, [](simdjson::ondemand::value& value, UploadRecord& record) {
            return read(value, record.*field);
          }};
}

/// A member that may be absent or null, which both mean the field's default.
template <auto field>
constexpr platform::Member<UploadRecord> optional(std::string_view name) {
  return {name, false, [](simdjson::ondemand::value& value, UploadRecord& record) {
            if (!platform::readNull(value)) return read(value, record.*field);
            record.*field = UploadRecordJson::blank().*field;
            return true;
          }};
}

}  // namespace

UploadRecord UploadRecordJson::blank() { return {{}, {}, UploadStatus::pending, 0, 0}; }

bool UploadRecordJson::read(simdjson::ondemand::object& object, UploadRecord& record) {
  using R = UploadRecord;
  static constexpr platform::Members<R, 12> kMembers = {{
      required<&R::id_>("id"),
      required<&R::filename_>("filename"),
      required<&R::status>("status"),
      required<&R::bytesUploaded>("bytesUploaded"),
      required<&R::totalBytes>("totalBytes"),
      optional<&R::errorMessage>("errorMessage"),
      optional<&R::creationDate>("creationDate"),
      optional<&R::thumbnailUploaded>("thumbnailUploaded"),
      optional<&R::retryCount>("retryCount"),
      optional<&R::eTag>("eTag"),
      optional<&R::tags>("tags"),
      optional<&R::tagsVersion>("tagsVersion"),
  }};
  return platform::readMembers(object, kMembers, record);
}

bool UploadRecordJson::write(platform::JsonWriter& writer, const UploadRecord& record) {
  const auto status = uploadStatusText(record.status);
  if (status.empty()) return false;
  writer.beginObject();
  writer.member("id", record.id());
  writer.member("filename", record.filename());
  writer.member("status", status);
  writer.member("bytesUploaded", record.bytesUploaded);
  writer.member("totalBytes", record.totalBytes);
  if (record.errorMessage) writer.member("errorMessage", *record.errorMessage);
  if (record.creationDate) {
    writer.member("creationDate", record.creationDate->secondsSinceReferenceDate);
  }
  writer.member("thumbnailUploaded", record.thumbnailUploaded);
  writer.member("retryCount", record.retryCount);
  if (record.eTag) writer.member("eTag", *record.eTag);
  writer.member("tags", record.tags);
  writer.member("tagsVersion", record.tagsVersion);
  writer.endObject();
  return writer.ok();
}

}  // namespace orvane::bookkeeping
