#include <orvane/transport/S3MultipartUploader.h>

#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/platform/files/FileReader.h>
#include <orvane/platform/files/FileVersion.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/internal/MultipartProtocol.h>
#include <orvane/transport/internal/MultipartUpload.h>

#include <optional>
#include <utility>

namespace orvane {

using namespace transport;

namespace {

constexpr std::size_t kConcurrentCallbacks = 4;

void uploadSingle(UploaderState& uploader, const std::filesystem::path& file, const Url& object,
                  std::string_view contentType, std::int64_t size, UploadProgress progress,
                  UploadCompletion completion) {
  auto content = platform::readWholeFile(file);
  if (!content) return completion(std::unexpected(S3Error::fileReadError()));
  auto put = putObjectRequest(uploader.signer, object, contentType, std::move(*content));
  uploader.session.start(std::move(put.request), std::move(put.body), {},
                         [size, progress = std::move(progress),
                          completion = std::move(completion)](Result<HttpResponse> answer) {
                           const auto checked = checkedAnswer(std::move(answer));
                           if (!checked) return completion(std::unexpected(checked.error()));
                           if (progress) progress(size, size);
                           completion({});
                         });
}

void uploadInParts(const std::shared_ptr<UploaderState>& uploader, std::string_view contentType,
                   MultipartUploadJob job) {
  auto request = initiateRequest(uploader->signer, job.object, contentType);
  if (!request) return job.completion(std::unexpected(S3Error::invalidURL()));
  uploader->session.start(
      std::move(*request), {}, {},
      [weak = std::weak_ptr(uploader), job = std::move(job)](Result<HttpResponse> answer) mutable {
        auto remaining = weak.lock();
        if (!remaining) return;
        auto uploadId = uploadIdIn(std::move(answer));
        if (!uploadId) return job.completion(std::unexpected(uploadId.error()));
        job.uploadId = std::move(*uploadId);
        auto upload = std::make_shared<MultipartUpload>(std::move(remaining), std::move(job));
        platform::BackgroundQueue::async([upload = std::move(upload)] { upload->start(); });
      });
}

}  // namespace

S3MultipartUploader::S3MultipartUploader(S3Config config)
    : state_(std::make_shared<UploaderState>(std::move(config), kConcurrentCallbacks)) {}

void S3MultipartUploader::upload(const std::filesystem::path& fileURL, std::string_view key,
                                 std::string_view contentType, UploadProgress progress,
                                 UploadCompletion completion) {
  auto object = state_->config.url(key);
  if (!object) return completion(std::unexpected(S3Error::invalidURL()));
  const auto version = platform::versionOf(fileURL);
  if (!version) return completion(std::unexpected(S3Error::fileReadError()));
  if (version->size < chunkSize) {
    return uploadSingle(*state_, fileURL, *object, contentType, version->size, std::move(progress),
                        std::move(completion));
  }
  uploadInParts(state_, contentType,
                {.file = fileURL,
                 .object = std::move(*object),
                 .uploadId = {},
                 .fileSize = version->size,
                 .progress = std::move(progress),
                 .completion = std::move(completion)});
}

}  // namespace orvane
