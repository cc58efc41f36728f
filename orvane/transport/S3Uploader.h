#pragma once

#include <orvane/Async.h>
#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/transport/S3Config.h>
#include <orvane/transport/UploadCallbacks.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

/// One-shot calls to the object store. Each is signed with the current time, sent once and never
/// retried. Any thread may make any number of them at the same time.
///
/// A content type must not begin or end with a blank, which the signature counts and HTTP does not:
/// the store responds with 403.
///
/// Errors they share: `S3Error::invalidURL` when configuration and key make no URL (nothing is
/// sent), `S3Error::httpError` for a response of 300 or more, and the HTTP client's own errors
/// (domain `Error::kUrlLoading`, or `Error::kPosix` where descriptors or threads have run out; see
/// HttpSession.h) unchanged.
struct S3Uploader {
  S3Uploader() = delete;

  /// Puts bytes as one object and yields its ETag without quotes, empty when the store names none.
  ///
  /// Suspends the caller, who resumes on its own executor, which must outlive the operation.
  /// Cancelling the coroutine ends the transfer with the code cancelled (-999). The whole object
  /// is hashed on the caller's thread before it is sent.
  [[nodiscard]] static Async<std::string> uploadData(Bytes data, std::string key,
                                                     std::string contentType, S3Config config);

  /// Puts a local file as one object. The file is read whole into memory and hashed before this
  /// returns; meant for files of moderate size (see `S3MultipartUploader`).
  ///
  /// `completion`, which must not be empty, is called exactly once (see UploadCallbacks.h for the
  /// exit), after any `progress`: at once on the calling thread with `invalidURL` or
  /// `fileReadError`, otherwise on a queue of this upload's own. `progress` (may be empty) gets
  /// bytes of the body sent so far and its length.
  static void upload(const std::filesystem::path& fileURL, std::string_view key,
                     std::string_view contentType, const S3Config& config, UploadProgress progress,
                     UploadCompletion completion);

  /// Begins a multipart upload and returns its identifier. Blocks until the response is there.
  /// Fails with `S3Error::serverError("Missing UploadId")` when the response lacks one.
  [[nodiscard]] static Result<std::string> initiateMultipartUpload(std::string_view key,
                                                                   std::string_view contentType,
                                                                   const S3Config& config);

  /// Assembles the object from its parts (number from 1, ETag without quotes; in any order) and
  /// returns its ETag, which may be empty. Blocks until the response is there. A response of 200 is
  /// a success even if its body reports an error. Only the first MiB of the body is looked at.
  /// After a failure the bucket holds the object, where only the response was lost, or the parts
  /// until `abortMultipartUpload`.
  [[nodiscard]] static Result<std::string> completeMultipartUpload(
      std::string_view key, std::string_view uploadId,
      std::vector<std::pair<std::int64_t, std::string>> parts, const S3Config& config);

  /// Gives a multipart upload up. Blocks until the response is there; the outcome is ignored.
  static void abortMultipartUpload(std::string_view key, std::string_view uploadId,
                                   const S3Config& config);
};

}  // namespace orvane
