#include <orvane/platform/http/UrlError.h>

#include <string>

namespace orvane::platform {

std::string_view describe(UrlErrorCode code) noexcept {
  switch (code) {
    case UrlErrorCode::unknown:
      return "The request failed for an unknown reason";
    case UrlErrorCode::cancelled:
      return "The request was cancelled";
    case UrlErrorCode::badURL:
      return "The request is malformed";
    case UrlErrorCode::timedOut:
      return "The request made no progress within its time limit";
    case UrlErrorCode::unsupportedURL:
      return "The URL's scheme is not supported";
    case UrlErrorCode::cannotFindHost:
      return "The host's name could not be resolved";
    case UrlErrorCode::cannotConnectToHost:
      return "No connection to the host could be made";
    case UrlErrorCode::networkConnectionLost:
      return "The connection was lost";
    case UrlErrorCode::dnsLookupFailed:
      return "The proxy's name could not be resolved";
    case UrlErrorCode::notConnectedToInternet:
      return "There is no route to the network";
    case UrlErrorCode::badServerResponse:
      return "The server's answer is not HTTP";
    case UrlErrorCode::userAuthenticationRequired:
      return "The proxy asks for credentials";
    case UrlErrorCode::dataLengthExceedsMaximum:
      return "The server's answer is longer than allowed";
    case UrlErrorCode::secureConnectionFailed:
      return "No secure connection could be made";
    case UrlErrorCode::serverCertificateUntrusted:
      return "The server's certificate is not trusted";
  }
  return "The request failed";
}

Error urlError(UrlErrorCode code, std::string_view detail) {
  std::string description(describe(code));
  if (!detail.empty()) description.append(" (").append(detail).append(")");
  return {Error::kUrlLoading, static_cast<int>(code), std::move(description)};
}

}  // namespace orvane::platform
