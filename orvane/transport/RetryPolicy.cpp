#include <orvane/transport/RetryPolicy.h>

#include <orvane/platform/http/UrlError.h>
#include <orvane/transport/S3Error.h>

#include <algorithm>
#include <array>

namespace orvane {
namespace {

constexpr std::int64_t kTooManyRequests = 429;
constexpr std::int64_t kFirstServerFailure = 500;

bool isRetryableCode(std::int64_t urlErrorCode) {
  using enum platform::UrlErrorCode;
  constexpr std::array kRetryable = {
      timedOut,       networkConnectionLost, notConnectedToInternet, cannotConnectToHost,
      cannotFindHost, dnsLookupFailed,       secureConnectionFailed};
  return std::ranges::any_of(kRetryable, [urlErrorCode](platform::UrlErrorCode code) {
    return urlErrorCode == static_cast<std::int64_t>(code);
  });
}

}  // namespace

bool RetryPolicy::isRetryable(const Error& error) noexcept {
  if (const auto* const s3Error = error.as<S3Error>()) {
    const auto status = s3Error->statusCode();
    return status && (*status >= kFirstServerFailure || *status == kTooManyRequests);
  }
  if (error.domain() == Error::kUrlLoading) return isRetryableCode(error.code());
  return error.domain() == Error::kPosix;
}

}  // namespace orvane
