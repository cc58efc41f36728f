#pragma once

#include <orvane/platform/files/FileReader.h>
#include <orvane/platform/files/FileVersion.h>
#include <orvane/transport/ResumableUploader.h>
#include <orvane/transport/internal/ModificationTime.h>
#include <orvane/transport/internal/StoreExchange.h>
#include <orvane/transport/internal/StoredParts.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane::transport {

/// What the uploads of one uploader share.
struct ResumableUploaderState {
  ResumableUploaderState(S3Config config, ResumableUploader::Options uploaderOptions)
      : exchange(std::move(config), uploaderOptions.firstRetryDelay), options(uploaderOptions) {}

  StoreExchange exchange;
  ResumableUploader::Options options;
};

/// What one upload is about.
struct ResumableUploadJob {
  std::filesystem::path file;
  std::string key;
  std::string contentType;
  std::optional<UploadCheckpoint> from;
  ResumableUploader::Events events;
};

/// One upload. Its coroutines run on one strand, so that its members need no lock; reading, hashing
/// and signing happen on the background pool meanwhile.
class ResumableUpload {
 public:
  ResumableUpload(std::shared_ptr<ResumableUploaderState> uploader, ResumableUploadJob job)
      : uploader_(std::move(uploader)), exchange_(uploader_->exchange), job_(std::move(job)) {}

  /// The whole upload; call once, as a coroutine of its own on a strand. Yields the ETag.
  [[nodiscard]] Async<std::string> run();

 private:
  struct StoredObject {
    std::int64_t size = 0;
    std::string eTag;
    std::optional<FileTime> modified = {};  ///< Of the file it was made of, where it tells.
  };
  /// What became of the checkpoint.
  struct Resumed {
    bool goesOn = false;
    std::optional<std::string> eTag = {};  ///< Where the object turned out to be complete.
  };

  /// The response to a request that is retried.
  [[nodiscard]] Async<HttpResponse> sent(StoreExchange::Sign sign);

  [[nodiscard]] Result<void> open();
  /// Whether what was read is the file as it was opened.
  [[nodiscard]] Result<void> checkUnchanged() const;

  // A file that goes up in one request.
  [[nodiscard]] Async<std::string> uploadSmall();
  [[nodiscard]] Async<std::string> putOnce(SharedBytes content, bool again);

  // A file that goes up in parts.
  [[nodiscard]] Async<std::string> uploadInParts();
  [[nodiscard]] Async<std::string> tryInParts();
  /// Goes on from the checkpoint, or begins anew. Yields the ETag where the object is there
  /// already.
  [[nodiscard]] Async<std::optional<std::string>> begin();
  [[nodiscard]] Async<Resumed> resume();
  /// Leaves in `reached_` the parts that the store holds as that says. Yields whether the file
  /// still holds them.
  [[nodiscard]] Async<bool> dropPartsNotStored();
  /// Whether the file holds the bytes that the ETags of the parts say, where they say it.
  [[nodiscard]] Async<bool> fileHoldsReachedParts();

  /// Sends the missing parts, as many at a time as the options have it.
  [[nodiscard]] Async<void> sendMissingParts();
  /// Sends missing parts one after the other until none is left.
  [[nodiscard]] Async<void> sendPartAfterPart();
  [[nodiscard]] std::optional<std::int64_t> takeMissingPart();
  [[nodiscard]] Async<void> sendPart(std::int64_t number, std::shared_ptr<std::byte[]> buffer);
  /// Reads one part whole.
  [[nodiscard]] Result<SharedBytes> readPart(std::int64_t number,
                                             const std::shared_ptr<std::byte[]>& buffer);

  [[nodiscard]] Async<std::string> completeOnce();
  /// The ETag of the object if it is what the parts make.
  [[nodiscard]] Async<std::optional<std::string>> completedObject(bool uploadIsGone);
  [[nodiscard]] Async<StoredObject> head();  ///< Asks once.
  /// Whether an object has the file's size, and its time where it tells one.
  [[nodiscard]] bool fits(const StoredObject& object) const;
  /// Gives up the upload that `reached_` names, if any, whatever the store says to it.
  [[nodiscard]] boost::asio::awaitable<void> abortReached();

  /// What the object carries beside its content.
  [[nodiscard]] AWSSignatureV4::Headers metadata() const;
  [[nodiscard]] std::size_t partSize() const;
  [[nodiscard]] std::int64_t partCount() const;
  /// The bytes in a part; 0 where there is no such part.
  [[nodiscard]] std::int64_t lengthOf(std::int64_t partNumber) const;
  void report() const;

  std::shared_ptr<ResumableUploaderState> uploader_;
  StoreExchange& exchange_;
  ResumableUploadJob job_;
  std::optional<Url> object_;
  std::optional<platform::FileReader> file_;
  platform::FileVersion version_;  ///< Of the file when it was opened.
  UploadCheckpoint reached_;
  std::int64_t nextPart_ = 1;  ///< Every missing part before it is taken.
};

}  // namespace orvane::transport
