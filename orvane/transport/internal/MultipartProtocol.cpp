#include <orvane/transport/internal/MultipartProtocol.h>

#include <orvane/transport/S3Error.h>
#include <orvane/transport/XMLTagParser.h>

#include <algorithm>
#include <memory>

namespace orvane::transport {
namespace {

AWSSignatureV4::Headers contentTypeHeader(std::string_view contentType,
                                          AWSSignatureV4::Headers metadata = {}) {
  metadata.insert(metadata.end(), {"Content-Type", std::string(contentType)});
  return metadata;
}

/// A request that is answered by status and headers; bodies are of no use, or of little.
RequestWithBody answeredByItsHead(HttpRequest request, SharedBytes body = {}) {
  request.needsWholeAnswer = false;
  return {std::move(request), std::move(body)};
}

/// Parts in ascending order of their numbers.
std::string completeMultipartUploadXml(MultipartParts parts) {
  std::ranges::stable_sort(parts, {}, &MultipartParts::value_type::first);
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CompleteMultipartUpload>\n";
  for (const auto& [number, etag] : parts) {
    xml.append("  <Part>\n    <PartNumber>").append(std::to_string(number));
    xml.append("</PartNumber>\n    <ETag>").append(etag).append("</ETag>\n  </Part>\n");
  }
  xml.append("</CompleteMultipartUpload>");
  return xml;
}

}  // namespace

RequestWithBody putObjectRequest(const RequestSigner& signer, const Url& object,
                                 std::string_view contentType, SharedBytes body,
                                 const AWSSignatureV4::Headers& metadata) {
  auto request =
      signer.signedRequest("PUT", object, contentTypeHeader(contentType, metadata), body.view());
  return answeredByItsHead(std::move(request), std::move(body));
}

std::optional<HttpRequest> initiateRequest(const RequestSigner& signer, const Url& object,
                                           std::string_view contentType,
                                           const AWSSignatureV4::Headers& metadata) {
  const auto url = object.withQuery({{"uploads", std::nullopt}});
  if (!url) return std::nullopt;
  return signer.signedRequest("POST", *url, contentTypeHeader(contentType, metadata));
}

std::optional<RequestWithBody> uploadPartRequest(const RequestSigner& signer, const Url& object,
                                                 std::int64_t partNumber, std::string_view uploadId,
                                                 SharedBytes body) {
  const auto number = std::to_string(partNumber);
  const auto url = object.withQuery({{"partNumber", number}, {"uploadId", uploadId}});
  if (!url) return std::nullopt;
  auto request = signer.signedRequest("PUT", *url, {}, body.view());
  return answeredByItsHead(std::move(request), std::move(body));
}

std::optional<RequestWithBody> completeRequest(const RequestSigner& signer, const Url& object,
                                               std::string_view uploadId, MultipartParts parts) {
  const auto url = object.withQuery({{"uploadId", uploadId}});
  if (!url) return std::nullopt;
  const auto xml =
      std::make_shared<const std::string>(completeMultipartUploadXml(std::move(parts)));
  SharedBytes body(xml, bytesOf(*xml));
  auto request =
      signer.signedRequest("POST", *url, contentTypeHeader("application/xml"), body.view());
  return answeredByItsHead(std::move(request), std::move(body));
}

std::optional<HttpRequest> abortRequest(const RequestSigner& signer, const Url& object,
                                        std::string_view uploadId) {
  const auto url = object.withQuery({{"uploadId", uploadId}});
  if (!url) return std::nullopt;
  return answeredByItsHead(signer.signedRequest("DELETE", *url)).request;
}

std::optional<HttpRequest> listPartsRequest(const RequestSigner& signer, const Url& object,
                                            std::string_view uploadId, std::int64_t after) {
  const auto marker = std::to_string(after);
  const auto url = object.withQuery({{"uploadId", uploadId}, {"part-number-marker", marker}});
  if (!url) return std::nullopt;
  return signer.signedRequest("GET", *url);
}

Result<HttpResponse> checkedAnswer(Result<HttpResponse> answer) {
  if (answer && answer->status >= kFirstFailureStatus) {
    return std::unexpected(S3Error::httpError(answer->status));
  }
  return answer;
}

Result<std::string> uploadIdIn(Result<HttpResponse> answer) {
  answer = checkedAnswer(std::move(answer));
  if (!answer) return std::unexpected(answer.error());
  auto uploadId = XMLTagParser::extractTag("UploadId", bytesOf(answer->body));
  if (!uploadId) return std::unexpected(S3Error::serverError("Missing UploadId"));
  return std::move(*uploadId);
}

}  // namespace orvane::transport
