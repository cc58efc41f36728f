#pragma once

#include <orvane/bookkeeping/Date.h>
#include <orvane/bookkeeping/UploadStatus.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

namespace bookkeeping {
struct UploadRecordJson;
}

/// What is known about the upload of one asset. A plain value; `id` and `filename` are fixed when
/// it is made, everything else is the host's to change.
///
///     UploadRecord record("A1B2-3", "media/IMG_0042.HEIC", UploadStatus::pending, 0, 2'048'576);
///     record.bytesUploaded = 1'024'288;
///     record.progress();            // 0.5
///     record.thumbnailFilename();   // "thumbnails/IMG_0042.jpg"
class UploadRecord {
 public:
  UploadRecord(std::string id, std::string filename, UploadStatus status,
               std::int64_t bytesUploaded, std::int64_t totalBytes,
               std::optional<std::string> errorMessage = std::nullopt,
               std::optional<Date> creationDate = std::nullopt, bool thumbnailUploaded = false,
               std::int64_t retryCount = 0, std::optional<std::string> eTag = std::nullopt,
               std::vector<std::string> tags = {}, std::int64_t tagsVersion = 0);

  /// Identifies the asset, and the record among others.
  [[nodiscard]] const std::string& id() const noexcept { return id_; }
  /// The asset's file or object name, as the host gave it; it may begin with "media/".
  [[nodiscard]] const std::string& filename() const noexcept { return filename_; }

 private:
  std::string id_;
  std::string filename_;

 public:
  UploadStatus status;
  std::int64_t bytesUploaded;               ///< Bytes of the asset transferred so far.
  std::int64_t totalBytes;                  ///< The asset's size in bytes; 0 or less means unknown.
  std::optional<std::string> errorMessage;  ///< Text of the last failure.
  std::optional<Date> creationDate;         ///< When the asset was created.
  bool thumbnailUploaded;                   ///< Whether the asset's thumbnail is in the bucket.
  std::int64_t retryCount;                  ///< Retries so far, counted by the host.
  std::optional<std::string> eTag;          ///< Entity tag of the uploaded object.
  std::vector<std::string> tags;            ///< The asset's tags.
  std::int64_t tagsVersion;                 ///< Version stamp of `tags`.

  /// The fraction that is uploaded, not limited to the range from 0 to 1. With an unknown size: 1
  /// when completed, 0 otherwise.
  [[nodiscard]] double progress() const noexcept;

  /// The key of the asset's JPEG thumbnail: "thumbnails/", then the file name without a leading
  /// "media/" and with its extension replaced by ".jpg"; "_VIDEO.jpg" for .mp4, .mov and .m4v. A
  /// name without extension stays as it is.
  [[nodiscard]] std::string thumbnailFilename() const;

  /// The record as one compact JSON object, absent values left out. A text that is not UTF-8 is
  /// written with U+FFFD in place of what is wrong. Nothing when the date is not finite or the
  /// status is none of the cases.
  [[nodiscard]] std::optional<std::string> encodeJson() const;

  /// The record in a text that is one JSON object. The first five fields are required; the others
  /// take their defaults when absent or null; unknown members are ignored. Nothing when the text is
  /// not valid JSON, or when a member has the wrong type, an unknown status or a number that is not
  /// a whole one of 64 bits. Of members of one name the last one counts.
  [[nodiscard]] static std::optional<UploadRecord> decodeJson(std::string_view json);

 private:
  friend struct bookkeeping::UploadRecordJson;
};

}  // namespace orvane
