#pragma once

#include <orvane/Error.h>

#include <string_view>

namespace orvane::platform {

/// What can go wrong while a URL is loaded; the numbers are published and stable.
enum class UrlErrorCode : int {
  unknown = -1,
  cancelled = -999,
  badURL = -1000,
  timedOut = -1001,
  unsupportedURL = -1002,
  cannotFindHost = -1003,
  cannotConnectToHost = -1004,
  networkConnectionLost = -1005,
  dnsLookupFailed = -1006,
  notConnectedToInternet = -1009,
  badServerResponse = -1011,
  userAuthenticationRequired = -1013,
  dataLengthExceedsMaximum = -1103,
  secureConnectionFailed = -1200,
  serverCertificateUntrusted = -1202,
};

/// One fixed sentence per code.
[[nodiscard]] std::string_view describe(UrlErrorCode code) noexcept;

/// The `Error` of the domain `Error::kUrlLoading` for a code. `detail`, when given, follows the
/// sentence in parentheses.
[[nodiscard]] Error urlError(UrlErrorCode code, std::string_view detail = {});

}  // namespace orvane::platform
