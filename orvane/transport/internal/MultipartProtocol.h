#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/http/HttpRequest.h>
#include <orvane/platform/http/HttpResponse.h>
#include <orvane/transport/BucketRequests.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The requests of the upload protocol, signed with the current time and ready to be sent, and what
// their answers mean. Requests with a query are absent when their URL cannot be built.
namespace orvane::transport {

/// Part numbers and ETags, without quotes.
using MultipartParts = std::vector<std::pair<std::int64_t, std::string>>;

struct RequestWithBody {
  HttpRequest request;
  SharedBytes body;
};

[[nodiscard]] RequestWithBody putObjectRequest(const RequestSigner& signer, const Url& object,
                                               std::string_view contentType, SharedBytes body,
                                               const AWSSignatureV4::Headers& metadata = {});
[[nodiscard]] std::optional<HttpRequest> initiateRequest(
    const RequestSigner& signer, const Url& object, std::string_view contentType,
    const AWSSignatureV4::Headers& metadata = {});
[[nodiscard]] std::optional<RequestWithBody> uploadPartRequest(const RequestSigner& signer,
                                                               const Url& object,
                                                               std::int64_t partNumber,
                                                               std::string_view uploadId,
                                                               SharedBytes body);
[[nodiscard]] std::optional<RequestWithBody> completeRequest(const RequestSigner& signer,
                                                             const Url& object,
                                                             std::string_view uploadId,
                                                             MultipartParts parts);
[[nodiscard]] std::optional<HttpRequest> abortRequest(const RequestSigner& signer,
                                                      const Url& object, std::string_view uploadId);

/// Asks for the parts after the one with the number `after`.
[[nodiscard]] std::optional<HttpRequest> listPartsRequest(const RequestSigner& signer,
                                                          const Url& object,
                                                          std::string_view uploadId,
                                                          std::int64_t after);

/// The answer itself, or `httpError` for a status of 300 or more, or the transport's error.
[[nodiscard]] Result<HttpResponse> checkedAnswer(Result<HttpResponse> answer);

/// The upload identifier in the answer to an initiate request.
[[nodiscard]] Result<std::string> uploadIdIn(Result<HttpResponse> answer);

}  // namespace orvane::transport
