#include <orvane/platform/UrlError.h>
#include <orvane/platform/internal/CurlError.h>

#include <cerrno>

namespace orvane::platform {
namespace {

UrlErrorCode codeOf(CURLcode code, long osError) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return UrlErrorCode::timedOut;
    case CURLE_COULDNT_RESOLVE_HOST:
      return UrlErrorCode::cannotFindHost;
    case CURLE_COULDNT_RESOLVE_PROXY:
      return UrlErrorCode::dnsLookupFailed;
    case CURLE_COULDNT_CONNECT:
    case CURLE_INTERFACE_FAILED:
      return osError == ENETUNREACH || osError == ENETDOWN ? UrlErrorCode::notConnectedToInternet
                                                           : UrlErrorCode::cannotConnectToHost;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_PROXY:
      return UrlErrorCode::networkConnectionLost;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_CLIENTCERT:
      return UrlErrorCode::secureConnectionFailed;
    // Trying again would not make the certificate better.
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return UrlErrorCode::serverCertificateUntrusted;
    case CURLE_URL_MALFORMAT:
    case CURLE_LOGIN_DENIED:  // Credentials in the URL, which are never sent.
      return UrlErrorCode::badURL;
    // The request's scheme is checked before: here the answer spoke another protocol.
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
      return UrlErrorCode::badServerResponse;
    case CURLE_ABORTED_BY_CALLBACK:
      return UrlErrorCode::cancelled;
    default:
      return UrlErrorCode::unknown;
  }
}

}  // namespace

Error errorOf(CURLcode code, long osError) {
  return urlError(codeOf(code, osError), curl_easy_strerror(code));
}

}  // namespace orvane::platform
