#pragma once

#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/base/Digest.h>
#include <orvane/platform/http/HttpRequest.h>
#include <orvane/platform/http/Url.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// Signs requests with AWS Signature Version 4 for the service "s3".
///
/// Immutable: any number of threads may sign with one signer. It holds no clock and no cached key.
///
/// Compared with the published algorithm: header values are signed as they are given, neither
/// trimmed nor folded; query items of equal name keep their order; `Host` is the host name without
/// a port; every header is signed.
class AWSSignatureV4 {
 public:
  using Headers = std::map<std::string, std::string, std::less<>>;
  using TimePoint = std::chrono::system_clock::time_point;

  AWSSignatureV4(std::string accessKey, std::string secretKey, std::string region);

  [[nodiscard]] const std::string& accessKey() const noexcept { return accessKey_; }
  [[nodiscard]] const std::string& secretKey() const noexcept { return secretKey_; }
  [[nodiscard]] const std::string& region() const noexcept { return region_; }
  [[nodiscard]] const std::string& service() const noexcept { return service_; }

  /// A request that is ready to be sent, with a time limit of 60 seconds. Cannot fail.
  ///
  /// @param method  sent and signed as it is
  /// @param url  the whole URL, query included
  /// @param headers  sent and signed besides the ones added here: "Host", "x-amz-date",
  ///     "x-amz-content-sha256" and "Authorization"
  /// @param body  hashed for the signature, in one pass, and not kept; absent counts as empty
  /// @param unsignedPayload  declares the payload unsigned; `body` is then ignored
  /// @param date  the signing time, normally the current time
  [[nodiscard]] HttpRequest signedRequest(std::string_view method, const Url& url,
                                          const Headers& headers, std::optional<ByteView> body,
                                          bool unsignedPayload, TimePoint date) const;

 private:
  [[nodiscard]] platform::Digest buildSigningKey(std::string_view shortDate) const;

  std::string accessKey_;
  std::string secretKey_;
  std::string region_;
  std::string service_ = "s3";
};

}  // namespace orvane
