#include <orvane/platform/http/UrlError.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

namespace orvane::platform {

std::string_view describe(UrlErrorCode code) noexcept {
  using enum UrlErrorCode;
  static constexpr std::pair<UrlErrorCode, std::string_view> kSentences[] = {
      {unknown, "The request failed for an unknown reason"},
      {cancelled, "The request was cancelled"},
      {badURL, "The request is malformed"},
      {timedOut, "The request made no progress within its time limit"},
      {unsupportedURL, "The URL's scheme is not supported"},
      {cannotFindHost, "The host's name could not be resolved"},
      {cannotConnectToHost, "No connection to the host could be made"},
      {networkConnectionLost, "The connection was lost"},
      {dnsLookupFailed, "The proxy's name could not be resolved"},
      {notConnectedToInternet, "There is no route to the network"},
      {badServerResponse, "The server's answer is not HTTP"},
      {userAuthenticationRequired, "The proxy asks for credentials"},
      {dataLengthExceedsMaximum, "The server's answer is longer than allowed"},
      {secureConnectionFailed, "No secure connection could be made"},
      {serverCertificateUntrusted, "The server's certificate is not trusted"},
  };
  const auto* const found =
      std::ranges::find(kSentences, code, &std::pair<UrlErrorCode, std::string_view>::first);
  return found == std::end(kSentences) ? "The request failed" : found->second;
}

Error urlError(UrlErrorCode code, std::string_view detail) {
  std::string description(describe(code));
  if (!detail.empty()) description.append(" (").append(detail).append(")");
  return {Error::kUrlLoading, static_cast<int>(code), std::move(description)};
}

}  // namespace orvane::platform
