#pragma once

#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/http/HttpRequest.h>
#include <orvane/transport/AWSSignatureV4.h>
#include <orvane/transport/S3Config.h>

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

// What every request to the bucket has in common.
namespace orvane::transport {

/// Responses with this status or a higher one are failures.
inline constexpr int kFirstFailureStatus = 300;

/// The bucket's own URL: the endpoint without the slashes around it, "/" and the bucket. Append a
/// query, or "/" and a key.
[[nodiscard]] std::string bucketUrl(const S3Config& config);

/// Signs requests with the keys of one configuration, as of now. Any thread may call it.
class RequestSigner {
 public:
  using TimePoint = AWSSignatureV4::TimePoint;

  explicit RequestSigner(const S3Config& config)
      : signer_(config.accessKey, config.secretKey, config.region) {}

  [[nodiscard]] HttpRequest signedRequest(std::string_view method, const Url& url,
                                          const AWSSignatureV4::Headers& headers = {},
                                          ByteView body = {}) const;

  /// The time that requests are signed with: this machine's clock, unless it was set.
  [[nodiscard]] TimePoint now() const;
  /// For a machine whose clock is off: it is this time now, and time goes on from here.
  void setNow(TimePoint now);

 private:
  AWSSignatureV4 signer_;
  /// How far the machine's clock is behind.
  std::atomic<std::chrono::system_clock::duration> correction_{};
};

}  // namespace orvane::transport
