#pragma once

#include <orvane/Async.h>
#include <orvane/Error.h>
#include <orvane/transport/RetryPolicy.h>
#include <orvane/transport/S3Config.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace orvane {

namespace transport {
struct ObjectDownloaderState;
}

/// How an `ObjectDownloader` works.
struct ObjectDownloadOptions {
  /// Ranges of one object that are fetched at the same time, 1 or more. Each is held in memory.
  std::size_t rangesInFlight = 4;
  /// What a request waits at least before it is sent again; twice as long each time, at most
  /// `RetryPolicy::maxDelay`, and up to half as long again by chance.
  std::chrono::duration<double> firstRetryDelay{RetryPolicy::baseDelay};
};

/// What is told while a download runs. Each may be empty; none may throw. They run on the executor
/// of the coroutine that awaits the download, one at a time.
struct ObjectDownloadEvents {
  /// A request has failed with this error and is to be sent again after that time. With false the
  /// download ends here, with the error.
  std::function<bool(const Error& error, std::chrono::duration<double> delay)> mayRetry = {};
  /// Bytes of the object that are on the disk, those of earlier calls included, and its size.
  std::function<void(std::int64_t received, std::int64_t total)> progress = {};
};

/// What a download does with a file that is at the target already and is not the object.
enum class ExistingFile {
  keep,     ///< Fails with EEXIST.
  replace,  ///< Puts the object in its place once that is whole.
};

/// What a download has brought.
struct DownloadedObject {
  std::string eTag;  ///< Without quotes.
  std::int64_t size = 0;
  /// Whether the content was read again and is what the ETag says. An ETag does not say it where
  /// the store encrypts with keys of a service, gives ETags of its own making, or does not tell the
  /// sizes of parts that differ from `ResumableUploader::partSizeFor`; only the length is known to
  /// be right then.
  bool isChecked = false;
  bool wasThere = false;  ///< The target held the object already; nothing was written.
};

/// Downloads objects of any size to files, and goes on with downloads that an earlier call, or an
/// earlier process, had to leave.
///
/// An object is fetched in ranges of 8 MiB, several at the same time, into a file of its own beside
/// the target; that becomes the target only when it is whole. Each request is retried as
/// `RetryPolicy` has it.
///
/// Any thread may call `download`, and any number of downloads may run at the same time; each
/// takes `rangesInFlight` connections at most. The downloader may be destroyed meanwhile.
///
///     ObjectDownloader downloader(config);
///     auto object = co_await downloader.download("media/VID_7.mov", "/home/ann/VID_7.mov");
///     if (object && !object->isChecked) ...   // whole, but the store gives no sum to compare with
class ObjectDownloader {
 public:
  using Options = ObjectDownloadOptions;
  using Events = ObjectDownloadEvents;

  explicit ObjectDownloader(S3Config config, Options options = {});

  /// Whether a file's name is that of an unfinished download, which a backup had better leave out.
  [[nodiscard]] static bool isUnfinished(const std::filesystem::path& file);

  /// Downloads an object to a file. The key counts as it is given to an upload: the prefix of the
  /// configuration is put before it.
  ///
  /// A target that has the object's size and the modification time that it carries, or its size and
  /// its content as the ETag tells it, is left as it is. Otherwise `existing` says what happens; a
  /// symbolic link at the target is not followed.
  ///
  /// The unfinished file has a name that begins with ".orvane-" and ends with ".part". One of an
  /// earlier call for the same target is gone on with where it belongs to the same version of the
  /// object; each range counts once it is on the disk. Two downloads to one target at the same time
  /// are refused, in other processes too: the second fails with EWOULDBLOCK.
  ///
  /// All ranges are those of one version. When the object is replaced meanwhile the download begins
  /// anew, three times at most. At the end the content is compared with the ETag, the modification
  /// time is set (that of the file that `ResumableUploader` sent, otherwise the object's), and
  /// the file is put on the disk before it gets the target's name, which its folder then holds
  /// durably. Permissions are those of any new file of this process.
  ///
  /// Suspends the caller, who resumes on its own executor, which must outlive the operation; files
  /// are written and hashed elsewhere. Holds up to twice the ranges in flight in memory.
  ///
  /// Cancelling the coroutine ends it with the code cancelled (-999). Then, and after an error that
  /// `RetryPolicy` calls retryable when the retries of one request are used up, the unfinished file
  /// stays for a later call; after any other error, and whatever this machine's disk reports, it is
  /// removed.
  ///
  /// Errors: `S3Error::invalidURL`; `S3Error::httpError` for a response of 300 or more;
  /// `S3Error::serverError` with "The object changed while it was being downloaded", "The content
  /// of the object does not match its ETag", "Missing ETag", for a response that is not the range
  /// that was asked for, and with the region of a bucket that is in another one; `Error::kPosix`
  /// for files: EEXIST as said, ENOSPC before anything is fetched where the file system can tell,
  /// EPERM for somebody else's file in the way; the HTTP client's errors.
  [[nodiscard]] Async<DownloadedObject> download(std::string key, std::filesystem::path target,
                                                 ExistingFile existing = ExistingFile::keep,
                                                 Events events = {});

 private:
  std::shared_ptr<transport::ObjectDownloaderState> state_;
};

}  // namespace orvane
