#pragma once

#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/base/Digest.h>
#include <orvane/platform/http/HttpRequest.h>
#include <orvane/platform/http/Url.h>

#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
  /// Header fields in the order in which they are signed. The texts belong to others.
  struct Field {
    std::string_view loweredName;
    std::string_view name;
    std::string_view value;
  };
  using Fields = std::vector<Field>;

  struct CanonicalRequest {
    std::string text;
    std::string signedHeaders;
  };

  /// `headers` and the signer's own fields, which replace those spelled like them, sorted by their
  /// lower-cased names. `loweredNames` keeps the names that had to be lower-cased.
  [[nodiscard]] static Fields sortedFields(const Headers& headers, const std::array<Field, 3>& own,
                                           std::string& loweredNames);
  /// The pattern yyyyMMdd'T'HHmmss'Z' in UTC.
  [[nodiscard]] static std::string iso8601Formatter(TimePoint date);
  [[nodiscard]] static std::string canonicalQueryString(const Url& from);
  [[nodiscard]] static CanonicalRequest buildCanonicalRequest(std::string_view method,
                                                              const Url& url, const Fields& headers,
                                                              std::string_view bodyHash);
  [[nodiscard]] static std::string buildStringToSign(std::string_view date,
                                                     std::string_view credentialScope,
                                                     std::string_view canonicalRequest);
  [[nodiscard]] platform::Digest buildSigningKey(std::string_view shortDate) const;
  [[nodiscard]] static platform::Digest hmac(ByteView key, std::string_view data);

  std::string accessKey_;
  std::string secretKey_;
  std::string region_;
  std::string service_ = "s3";
};

}  // namespace orvane
