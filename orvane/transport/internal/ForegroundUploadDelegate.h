#pragma once

#include <orvane/platform/http/HttpResponse.h>
#include <orvane/transport/UploadCallbacks.h>

#include <cstdint>

namespace orvane::transport {

/// Turns the events of one file upload into the host's callbacks.
class ForegroundUploadDelegate {
 public:
  ForegroundUploadDelegate(UploadProgress progressHandler, UploadCompletion completionHandler)
      : progressHandler_(std::move(progressHandler)),
        completionHandler_(std::move(completionHandler)) {}

  void didSendBodyData(std::int64_t totalBytesSent, std::int64_t totalBytesExpectedToSend) const;
  void didComplete(Result<HttpResponse> answer) const;

 private:
  UploadProgress progressHandler_;
  UploadCompletion completionHandler_;
};

}  // namespace orvane::transport
