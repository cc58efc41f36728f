#include <orvane/transport/S3Uploader.h>

#include <orvane/platform/files/FileReader.h>
#include <orvane/platform/http/HttpSession.h>
#include <orvane/transport/BucketRequests.h>
#include <orvane/transport/Listing.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/XMLTagParser.h>
#include <orvane/transport/internal/ForegroundUploadDelegate.h>
#include <orvane/transport/internal/MultipartProtocol.h>

#include <memory>

namespace orvane {

using namespace transport;
using platform::HttpSession;

Async<std::string> S3Uploader::uploadData(Bytes data, std::string key, std::string contentType,
                                          S3Config config) {
  const auto url = config.url(key);
  if (!url) co_return std::unexpected(S3Error::invalidURL());
  auto put =
      putObjectRequest(RequestSigner(config), *url, contentType, SharedBytes(std::move(data)));
  auto sending = HttpSession::shared().send(std::move(put.request), std::move(put.body));
  const auto answer = checkedAnswer(co_await std::move(sending));
  if (!answer) co_return std::unexpected(answer.error());
  co_return etagFromHeader(answer->headers.get("ETag").value_or(""));
}

void S3Uploader::upload(const std::filesystem::path& fileURL, std::string_view key,
                        std::string_view contentType, const S3Config& config,
                        UploadProgress progress, UploadCompletion completion) {
  const auto url = config.url(key);
  if (!url) return completion(std::unexpected(S3Error::invalidURL()));
  auto content = platform::readWholeFile(fileURL);
  if (!content) return completion(std::unexpected(S3Error::fileReadError()));
  auto put = putObjectRequest(RequestSigner(config), *url, contentType, std::move(*content));

  const auto delegate =
      std::make_shared<ForegroundUploadDelegate>(std::move(progress), std::move(completion));
  HttpSession session(1);
  session.start(
      std::move(put.request), std::move(put.body),
      [delegate](std::int64_t sent, std::int64_t total) { delegate->didSendBodyData(sent, total); },
      [delegate](Result<HttpResponse> answer) { delegate->didComplete(std::move(answer)); });
}

Result<std::string> S3Uploader::initiateMultipartUpload(std::string_view key,
                                                        std::string_view contentType,
                                                        const S3Config& config) {
  const auto url = config.url(key);
  if (!url) return std::unexpected(S3Error::invalidURL());
  auto request = initiateRequest(RequestSigner(config), *url, contentType);
  if (!request) return std::unexpected(S3Error::invalidURL());
  return uploadIdIn(HttpSession::shared().sendAndWait(std::move(*request)));
}

Result<std::string> S3Uploader::completeMultipartUpload(
    std::string_view key, std::string_view uploadId,
    std::vector<std::pair<std::int64_t, std::string>> parts, const S3Config& config) {
  const auto url = config.url(key);
  if (!url) return std::unexpected(S3Error::invalidURL());
  auto complete = completeRequest(RequestSigner(config), *url, uploadId, std::move(parts));
  if (!complete) return std::unexpected(S3Error::invalidURL());
  const auto answer = checkedAnswer(
      HttpSession::shared().sendAndWait(std::move(complete->request), std::move(complete->body)));
  if (!answer) return std::unexpected(answer.error());
  return etagFromXml(XMLTagParser::extractTag("ETag", bytesOf(answer->body)).value_or(""));
}

void S3Uploader::abortMultipartUpload(std::string_view key, std::string_view uploadId,
                                      const S3Config& config) {
  const auto url = config.url(key);
  if (!url) return;
  auto request = abortRequest(RequestSigner(config), *url, uploadId);
  if (!request) return;
  static_cast<void>(HttpSession::shared().sendAndWait(std::move(*request)));
}

}  // namespace orvane
