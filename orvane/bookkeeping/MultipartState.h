#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace orvane {

namespace bookkeeping {
struct MultipartStateJson;
}

/// What is known about one unfinished multipart upload. A plain value; all but the parts completed
/// is fixed when it is made, and nothing is checked.
///
///     MultipartState state("A1B2-3", uploadId, "media/IMG_0042.MOV", "video/quicktime", 3,
///                          20'485'760, {});
///     state.completedParts["1"] = etag;
class MultipartState {
 public:
  /// Numbers of parts in decimal, and the ETag of each.
  using Parts = std::map<std::string, std::string>;

  MultipartState(std::string assetId, std::string uploadId, std::string key,
                 std::string contentType, std::int64_t totalParts, std::int64_t fileSize,
                 Parts completedParts);

  /// Identifies the asset, and the state among others.
  [[nodiscard]] const std::string& assetId() const noexcept { return assetId_; }
  /// What the object store called the upload when it was initiated.
  [[nodiscard]] const std::string& uploadId() const noexcept { return uploadId_; }
  /// The object's key in the bucket.
  [[nodiscard]] const std::string& key() const noexcept { return key_; }
  /// The object's media type.
  [[nodiscard]] const std::string& contentType() const noexcept { return contentType_; }
  /// Number of parts of the whole upload.
  [[nodiscard]] std::int64_t totalParts() const noexcept { return totalParts_; }
  /// Size of the source file in bytes.
  [[nodiscard]] std::int64_t fileSize() const noexcept { return fileSize_; }

 private:
  std::string assetId_;
  std::string uploadId_;
  std::string key_;
  std::string contentType_;
  std::int64_t totalParts_;
  std::int64_t fileSize_;

 public:
  Parts completedParts;  ///< The parts that the object store has accepted.

  friend bool operator==(const MultipartState&, const MultipartState&) = default;

 private:
  friend struct bookkeeping::MultipartStateJson;
};

}  // namespace orvane
