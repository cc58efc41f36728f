#pragma once

#include <orvane/transport/S3Config.h>
#include <orvane/transport/UploadCallbacks.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

namespace orvane {

namespace transport {
struct UploaderState;
}

/// Uploads local files of any size: below `chunkSize` in one request, from there on in parts, one
/// after the other. A failed part aborts the whole upload. Nothing is retried, and nothing is
/// remembered between calls.
///
/// Any thread may call `upload`, and several uploads may run at the same time. Copies share one
/// uploader. Keep it until `completion` has been called: an upload in parts that finds its uploader
/// gone when the store answers the first request ends there without a word; from then on it keeps
/// the uploader alive itself.
///
/// An upload in parts holds one part in memory; a smaller file is held whole. The memory goes back
/// to the system at the end.
///
///     S3MultipartUploader uploader(config);
///     uploader.upload("IMG_1.jpg", "media/IMG_1.jpg", "image/jpeg",
///                     [](std::int64_t sent, std::int64_t total) { ... },
///                     [](Result<void> result) { ... });
class S3MultipartUploader {
 public:
  /// Bytes per part, and the size from which a file goes up in parts.
  static constexpr std::int64_t chunkSize = std::int64_t{8} * 1024 * 1024;

  explicit S3MultipartUploader(S3Config config);

  /// Uploads a file to an object key. Blocks while a small file is read and hashed; otherwise
  /// returns at once.
  ///
  /// `contentType` must not begin or end with a blank, which the signature counts and HTTP does
  /// not: the store answers 403. `completion` must not be empty.
  ///
  /// `progress` (may be empty) gets the bytes accepted by the store and the file's size: once at
  /// the end of a small file, after each part of a larger one. `completion` is called once, after
  /// every `progress`. Both run on the uploader's own queue, at most 4 callbacks at a time, one at
  /// a time for one upload; on the calling thread, before this returns, `completion` gets
  /// `invalidURL`, a file that cannot be read at the call, and a thread that cannot be started.
  /// What happens when the process exits, and more about callbacks, stands in UploadCallbacks.h.
  ///
  /// Errors: `S3Error::invalidURL`; `S3Error::fileReadError` when the file cannot be read, also
  /// while it is being uploaded, or there is no memory for a part; `S3Error::httpError` for an
  /// answer of 300 or more; `S3Error::serverError` with "Missing UploadId" or "Missing ETag"; the
  /// HTTP client's errors.
  ///
  /// The size, and so the number of parts, is the file's at the call. A file that becomes shorter
  /// meanwhile is completed with the parts read until then; of one that grows, or is replaced by a
  /// longer one, what lies beyond those parts is missing. Both succeed: who uploads files that
  /// others write compares size and time of change before and after.
  ///
  /// When a part fails, the upload is aborted. When completing it fails, nothing more is sent: the
  /// bucket then holds the object, where only the answer was lost, or the parts, which take space
  /// until the store's own rules or the host remove the unfinished upload.
  void upload(const std::filesystem::path& fileURL, std::string_view key,
              std::string_view contentType, UploadProgress progress, UploadCompletion completion);

 private:
  std::shared_ptr<transport::UploaderState> state_;
};

}  // namespace orvane
