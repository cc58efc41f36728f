#include <orvane/transport/internal/ForegroundUploadDelegate.h>

#include <orvane/transport/internal/MultipartProtocol.h>

#include <utility>

namespace orvane::transport {

void ForegroundUploadDelegate::didSendBodyData(std::int64_t totalBytesSent,
                                               std::int64_t totalBytesExpectedToSend) const {
  if (progressHandler_) progressHandler_(totalBytesSent, totalBytesExpectedToSend);
}

void ForegroundUploadDelegate::didComplete(Result<HttpResponse> answer) const {
  const auto checked = checkedAnswer(std::move(answer));
  completionHandler_(checked ? Result<void>{} : std::unexpected(checked.error()));
}

}  // namespace orvane::transport
