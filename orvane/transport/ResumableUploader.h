#pragma once

#include <orvane/Async.h>
#include <orvane/Error.h>
#include <orvane/transport/RetryPolicy.h>
#include <orvane/transport/S3Config.h>
#include <orvane/transport/UploadCallbacks.h>
#include <orvane/transport/UploadCheckpoint.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvane {

namespace transport {
struct ResumableUploaderState;
}

/// How a `ResumableUploader` works.
struct ResumableUploadOptions {
  /// Parts of one file that are sent at the same time, 1 or more. Each is held in memory.
  std::size_t partsInFlight = 4;
  /// What a request waits at least before it is sent again; twice as long each time, at most
  /// `RetryPolicy::maxDelay`, and up to half as long again by chance.
  std::chrono::duration<double> firstRetryDelay{RetryPolicy::baseDelay};
};

/// What is told while an upload runs. Each may be empty; none may throw. They run on the
/// executor of the coroutine that awaits the upload, one at a time.
struct ResumableUploadEvents {
  /// The upload has begun, or a part more has been accepted. The reference is valid during the
  /// call. Whoever goes on from an older checkpoint sends the parts since then once more.
  std::function<void(const UploadCheckpoint& reached)> checkpoint = {};
  /// A request has failed with this error and is to be sent again after that time. With false
  /// the upload ends here, with the error.
  std::function<bool(const Error& error, std::chrono::duration<double> delay)> mayRetry = {};
  /// Bytes that the store has accepted, those of earlier calls included, and the file's size.
  UploadProgress progress = {};
};

/// Uploads local files of any size, and goes on with uploads that an earlier call, or an earlier
/// process, had to leave.
///
/// A file of less than 8 MiB goes up in one request; a larger one in parts, several at the same
/// time. Each request is retried as `RetryPolicy` has it. Beside `S3MultipartUploader`, which does
/// neither.
///
/// Any thread may call `upload`, and any number of uploads may run at the same time; each takes
/// `partsInFlight` connections at most. The uploader may be destroyed meanwhile.
///
///     ResumableUploader uploader(config);
///     auto eTag = co_await uploader.upload(
///         "VID_7.mov", "media/VID_7.mov", "video/quicktime", savedCheckpoint,
///         {.checkpoint = [&](const UploadCheckpoint& reached) { save(reached); }});
class ResumableUploader {
 public:
  using Options = ResumableUploadOptions;
  using Events = ResumableUploadEvents;

  explicit ResumableUploader(S3Config config, Options options = {});

  /// The size of the parts for a file of so many bytes: 8 MiB, or more where that would make more
  /// than the 10,000 parts that a store takes.
  [[nodiscard]] static std::int64_t partSizeFor(std::int64_t fileSize) noexcept;

  /// Uploads a file to an object key and yields the object's ETag, without quotes; empty where the
  /// store names none for a file that goes up in one request.
  ///
  /// With a checkpoint `from`, it goes on where that says: with a file of the same size and time of
  /// change whose parts are those that the store names (and hold the same bytes, where their ETags
  /// are MD5 sums: they are read again for that). An upload that the store no longer knows, or
  /// whose file has changed, is begun anew, and the old one aborted; so is, once, one that the
  /// store forgets meanwhile. `from` counts for files that go up in parts.
  ///
  /// The object carries the file's modification time, in nanoseconds, as metadata
  /// (`x-amz-meta-mtime`), for `ObjectDownloader` to give it back.
  ///
  /// Suspends the caller, who resumes on its own executor, which must outlive the operation; the
  /// file is read and hashed elsewhere. Holds the parts in flight in memory, or a smaller file.
  ///
  /// Cancelling the coroutine ends it with the code cancelled (-999): what the store has accepted
  /// stays there for a later call. So it does after an error that `RetryPolicy` calls retryable,
  /// when the retries of one request are used up. After any other error the upload is aborted; a
  /// host that gives up in the first two cases calls `S3Uploader::abortMultipartUpload`. An upload
  /// whose first response was lost stays in the bucket, known to nobody, until the store's own
  /// rules remove it.
  ///
  /// Where the response to the last request was lost, the store is asked for the object: if that
  /// has the size and the ETag that the upload makes, it has succeeded. The same before a small
  /// file is sent again.
  ///
  /// Where the store refuses a request (403) and its clock differs from this machine's by more than
  /// five minutes, this uploader's requests are signed with the store's time from then on.
  ///
  /// Errors: `S3Error::invalidURL`; `S3Error::fileReadError`; `S3Error::httpError` for a response
  /// of 300 or more; `S3Error::serverError` when the file has changed while it was read ("The file
  /// changed while it was being uploaded": no object is made then), with "Missing UploadId" or
  /// "Missing ETag", with the region of a bucket that is in another one, and with the code that a
  /// response of 200 gives for an upload that cannot be completed; `Error::kPosix` with ENOMEM when
  /// there is no memory for a part; the HTTP client's errors.
  [[nodiscard]] Async<std::string> upload(std::filesystem::path file, std::string key,
                                          std::string contentType,
                                          std::optional<UploadCheckpoint> from = {},
                                          Events events = {});

 private:
  std::shared_ptr<transport::ResumableUploaderState> state_;
};

}  // namespace orvane
