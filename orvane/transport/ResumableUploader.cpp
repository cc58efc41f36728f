#include <orvane/transport/ResumableUploader.h>

#include <orvane/transport/S3MultipartUploader.h>
#include <orvane/transport/internal/OnStrand.h>
#include <orvane/transport/internal/ResumableUpload.h>

#include <algorithm>
#include <utility>

namespace orvane {

ResumableUploader::ResumableUploader(S3Config config, Options options)
    : state_(std::make_shared<transport::ResumableUploaderState>(std::move(config), options)) {}

std::int64_t ResumableUploader::partSizeFor(std::int64_t fileSize) noexcept {
  constexpr std::int64_t kMaxParts = 10'000;
  constexpr std::int64_t kMebibyte = std::int64_t{1} << 20;
  const auto needed = (fileSize + kMaxParts - 1) / kMaxParts;
  const auto wholeMebibytes = (needed + kMebibyte - 1) / kMebibyte * kMebibyte;
  return std::max(S3MultipartUploader::chunkSize, wholeMebibytes);
}

Async<std::string> ResumableUploader::upload(std::filesystem::path file, std::string key,
                                             std::string contentType,
                                             std::optional<UploadCheckpoint> from, Events events) {
  transport::ResumableUploadJob job{.file = std::move(file),
                                    .key = std::move(key),
                                    .contentType = std::move(contentType),
                                    .from = std::move(from),
                                    .events = std::move(events)};
  return transport::runOnStrand(
      std::make_shared<transport::ResumableUpload>(state_, std::move(job)));
}

}  // namespace orvane
