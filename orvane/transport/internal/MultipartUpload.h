#pragma once

#include <orvane/platform/files/FileReader.h>
#include <orvane/platform/http/HttpSession.h>
#include <orvane/transport/BucketRequests.h>
#include <orvane/transport/S3Config.h>
#include <orvane/transport/UploadCallbacks.h>
#include <orvane/transport/internal/MultipartProtocol.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvane::transport {

/// What the uploads of one uploader share.
struct UploaderState {
  UploaderState(S3Config configuration, std::size_t concurrentCallbacks)
      : config(std::move(configuration)), signer(config), session(concurrentCallbacks) {}

  S3Config config;
  RequestSigner signer;
  platform::HttpSession session;
};

/// What one upload in parts is about.
struct MultipartUploadJob {
  std::filesystem::path file;
  Url object;
  std::string uploadId;
  std::int64_t fileSize;
  UploadProgress progress;
  UploadCompletion completion;
};

/// One multipart upload from its first part to its completion.
///
/// Reading and sending a part run on the background queue, answers on the session's queue; no
/// thread waits in between. One part is in flight at a time, which also orders every access to the
/// members. It keeps itself and the uploader alive until it has reported.
class MultipartUpload : public std::enable_shared_from_this<MultipartUpload> {
 public:
  MultipartUpload(std::shared_ptr<UploaderState> uploader, MultipartUploadJob job);

  /// Call once, on the background queue.
  void start();

 private:
  void uploadNextPart();
  void uploadPart(std::int64_t number, std::size_t length);
  void partAnswered(std::int64_t number, std::size_t length, Result<HttpResponse> answer);
  void complete();
  void abort(Error reason);

  std::shared_ptr<UploaderState> uploader_;
  MultipartUploadJob job_;
  std::int64_t partCount_;
  std::optional<platform::FileReader> file_;
  std::shared_ptr<std::byte[]> buffer_;  ///< The part in flight.
  MultipartParts parts_;
  std::int64_t bytesAccepted_ = 0;
};

}  // namespace orvane::transport
