#pragma once

#include <orvane/transport/ObjectDownloader.h>
#include <orvane/transport/internal/ObjectVersion.h>
#include <orvane/transport/internal/PartialFile.h>
#include <orvane/transport/internal/StoreExchange.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane::transport {

/// What the downloads of one downloader share.
struct ObjectDownloaderState {
  ObjectDownloaderState(S3Config config, ObjectDownloader::Options downloaderOptions)
      : exchange(std::move(config), downloaderOptions.firstRetryDelay),
        options(downloaderOptions) {}

  StoreExchange exchange;
  ObjectDownloader::Options options;
};

/// What one download is about.
struct ObjectDownloadJob {
  std::string key;
  std::filesystem::path target;
  ExistingFile existing = ExistingFile::keep;
  ObjectDownloader::Events events;
};

/// One download. Its coroutines run on one strand, so that its members need no lock; files are read
/// and written on the background pool meanwhile.
class ObjectDownload {
 public:
  ObjectDownload(std::shared_ptr<ObjectDownloaderState> downloader, ObjectDownloadJob job)
      : downloader_(std::move(downloader)),
        exchange_(downloader_->exchange),
        job_(std::move(job)) {}

  /// The whole download; call once, as a coroutine of its own on a strand.
  [[nodiscard]] Async<DownloadedObject> run();

 private:
  /// How the content of a file and an ETag go together.
  enum class Match { same, different, unknown };

  /// The outcome if the target decides it: it is the object already, or must not be replaced.
  [[nodiscard]] Async<std::optional<DownloadedObject>> lookAtTarget();
  [[nodiscard]] Async<bool> targetIsObject();
  /// Fetches into the unfinished file and makes the target of it.
  [[nodiscard]] Async<DownloadedObject> fetchAndFinish();
  [[nodiscard]] Async<DownloadedObject> finish();

  /// Fetches what is missing of one version.
  [[nodiscard]] Async<void> fetch();
  /// Learns which version the store holds: from the first range, which stays in `firstRange_`,
  /// unless there are ranges of an earlier call that may make it superfluous.
  [[nodiscard]] Async<void> learnVersion();
  [[nodiscard]] Async<void> askForVersion();
  [[nodiscard]] Async<void> fetchFirstRange();
  /// Fetches missing ranges one after the other until none is left.
  [[nodiscard]] Async<void> fetchRangeAfterRange();
  [[nodiscard]] Async<void> storeRange(std::int64_t range, std::string content);

  [[nodiscard]] Async<Match> compare(std::filesystem::path file);
  /// The ETag of a file that is stored in pieces of these sizes.
  [[nodiscard]] Async<std::string> eTagOfFile(std::filesystem::path file,
                                              std::vector<std::int64_t> sizes, bool isInParts);
  /// The sizes of the object's parts; none where the store does not tell them.
  [[nodiscard]] Async<std::vector<std::int64_t>> storedPartSizes(std::int64_t count);

  /// Does something with files on the background pool, and remembers a failure.
  [[nodiscard]] Async<void> onDisk(std::function<Result<void>()> work);
  [[nodiscard]] std::optional<RequestWithBody> rangeRequest(std::int64_t range) const;
  [[nodiscard]] ByteRange bytesOfRange(std::int64_t range) const;
  [[nodiscard]] bool mayGoOnLater(const Error& error) const;
  [[nodiscard]] DownloadedObject outcome(bool isChecked, bool wasThere) const;
  void report() const;

  std::shared_ptr<ObjectDownloaderState> downloader_;
  StoreExchange& exchange_;
  ObjectDownloadJob job_;
  std::optional<Url> object_;
  std::optional<PartialFile> partial_;
  bool diskFailed_ = false;

  std::optional<ObjectVersion> version_;
  std::string firstRange_;
  std::vector<std::int64_t> missing_;  ///< Ranges, the next one last.
  std::int64_t received_ = 0;          ///< Bytes of the version that are on the disk.
};

}  // namespace orvane::transport
