#include <orvane/transport/BucketRequests.h>

#include <orvane/platform/base/Ascii.h>

namespace orvane::transport {

std::string bucketUrl(const S3Config& config) {
  return std::string(platform::trimmed(config.endpoint, '/')).append("/").append(config.bucket);
}

HttpRequest RequestSigner::signedRequest(std::string_view method, const Url& url,
                                         const AWSSignatureV4::Headers& headers,
                                         ByteView body) const {
  return signer_.signedRequest(method, url, headers, body, false, now());
}

RequestSigner::TimePoint RequestSigner::now() const {
  return std::chrono::system_clock::now() + correction_.load();
}

void RequestSigner::setNow(TimePoint now) { correction_ = now - std::chrono::system_clock::now(); }

}  // namespace orvane::transport
