#include <orvane/bookkeeping/UploadRecord.h>

#include <orvane/bookkeeping/internal/UploadRecordJson.h>
#include <orvane/platform/base/Ascii.h>

#include <algorithm>
#include <array>
#include <utility>

namespace orvane {
namespace {

constexpr std::string_view kMediaFolder = "media/";
constexpr std::string_view kThumbnailFolder = "thumbnails/";
constexpr std::array<std::string_view, 3> kVideoEndings = {".mp4", ".mov", ".m4v"};

bool isVideo(std::string_view name) {
  return std::ranges::any_of(kVideoEndings, [name](std::string_view ending) {
    return name.size() >= ending.size() &&
           platform::equalIgnoringCase(name.substr(name.size() - ending.size()), ending);
  });
}

}  // namespace

UploadRecord::UploadRecord(std::string id, std::string filename, UploadStatus state,
                           std::int64_t uploaded, std::int64_t total,
                           std::optional<std::string> error, std::optional<Date> created,
                           bool thumbnail, std::int64_t retries, std::optional<std::string> etag,
                           std::vector<std::string> labels, std::int64_t labelsVersion)
    : id_(std::move(id)),
      filename_(std::move(filename)),
      status(state),
      bytesUploaded(uploaded),
      totalBytes(total),
      errorMessage(std::move(error)),
      creationDate(created),
      thumbnailUploaded(thumbnail),
      retryCount(retries),
      eTag(std::move(etag)),
      tags(std::move(labels)),
      tagsVersion(labelsVersion) {}

double UploadRecord::progress() const noexcept {
  if (totalBytes <= 0) return status == UploadStatus::completed ? 1.0 : 0.0;
  return static_cast<double>(bytesUploaded) / static_cast<double>(totalBytes);
}

std::string UploadRecord::thumbnailFilename() const {
  std::string_view name = filename_;
  if (name.starts_with(kMediaFolder)) name.remove_prefix(kMediaFolder.size());
  std::string key(kThumbnailFolder);
  const auto dot = name.rfind('.');
  key += name.substr(0, dot);
  if (isVideo(name)) return key + "_VIDEO.jpg";
  return dot == std::string_view::npos ? key : key + ".jpg";
}

std::optional<std::string> UploadRecord::encodeJson() const {
  platform::JsonWriter writer(platform::BadText::repair);
  if (!bookkeeping::UploadRecordJson::write(writer, *this)) return std::nullopt;
  return std::string(writer.text());
}

std::optional<UploadRecord> UploadRecord::decodeJson(std::string_view json) {
  auto record = bookkeeping::UploadRecordJson::blank();
  const bool readable = platform::readDocument(
      simdjson::padded_string(json), [&](simdjson::ondemand::object& object) {
        return bookkeeping::UploadRecordJson::read(object, record);
      });
  if (!readable) return std::nullopt;
  return record;
}

}  // namespace orvane
