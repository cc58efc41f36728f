#include <orvane/platform/http/internal/CurlError.h>

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/http/UrlError.h>

#include <openssl/x509_vfy.h>

#include <cerrno>
#include <string>
#include <system_error>

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
      return osError == ENETUNREACH || osError == ENETDOWN ? UrlErrorCode::notConnectedToInternet
                                                           : UrlErrorCode::cannotConnectToHost;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_PROXY:
      return UrlErrorCode::networkConnectionLost;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CLIENTCERT:
      return UrlErrorCode::secureConnectionFailed;
    // Trying again would not make the certificate better, nor bring the authorities.
    case CURLE_SSL_CACERT_BADFILE:
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
      return UrlErrorCode::badServerResponse;
    case CURLE_ABORTED_BY_CALLBACK:
      return UrlErrorCode::cancelled;
    default:
      return UrlErrorCode::unknown;
  }
}

long figure(CURL* easy, CURLINFO name) {
  long value = 0;
  curl_easy_getinfo(easy, name, &value);
  return value;
}

const char* certificateFault(long verification) {
  switch (verification) {
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return "nobody trusted has issued it";
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return "it has expired";
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return "it is not valid yet";
    // The client library compares the names itself, after everything else was found in order.
    case X509_V_OK:
    case X509_V_ERR_UNSPECIFIED:
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return "it is made out to another name";
    default:
      return X509_verify_cert_error_string(verification);
  }
}

std::string detailOf(CURL* easy, CURLcode code, int osError) {
  switch (code) {
    case CURLE_COULDNT_CONNECT:
      return osError != 0 ? std::generic_category().message(osError) : curl_easy_strerror(code);
    case CURLE_LOGIN_DENIED:
      return "the URL holds a user name or a password";
    case CURLE_SSL_CACERT_BADFILE:
      return "the system has no bundle of authorities";
    case CURLE_PEER_FAILED_VERIFICATION: {
      const long proxy = figure(easy, CURLINFO_PROXY_SSL_VERIFYRESULT);
      if (proxy != X509_V_OK) return std::string("of the proxy: ") + certificateFault(proxy);
      return certificateFault(figure(easy, CURLINFO_SSL_VERIFYRESULT));
    }
    default:
      return curl_easy_strerror(code);
  }
}

/// Whether the errno value says that this machine or process has run out of something.
bool isShortage(int number) {
  return number == EMFILE || number == ENFILE || number == ENOBUFS || number == ENOMEM;
}

}  // namespace

Error errorOf(CURL* easy, CURLcode code, int openFailure) {
  constexpr long kFirstFailureStatus = 300;
  constexpr long kProxyAuthenticationRequired = 407;
  const long proxyStatus = figure(easy, CURLINFO_HTTP_CONNECTCODE);
  if (proxyStatus == kProxyAuthenticationRequired) {
    return urlError(UrlErrorCode::userAuthenticationRequired);
  }
  if (proxyStatus >= kFirstFailureStatus) {
    return urlError(UrlErrorCode::cannotConnectToHost,
                    "the proxy answers " + std::to_string(proxyStatus));
  }
  if (isShortage(openFailure)) return posixError(openFailure, "open a socket");
  const int osError =
      openFailure != 0 ? openFailure : static_cast<int>(figure(easy, CURLINFO_OS_ERRNO));
  return urlError(codeOf(code, osError), detailOf(easy, code, osError));
}

bool isLineTooLong(CURL* easy, CURLcode code) {
#if LIBCURL_VERSION_NUM >= 0x080600
  if (code == CURLE_TOO_LARGE) return true;
#endif
  curl_off_t answeredAfter = 0;
  curl_easy_getinfo(easy, CURLINFO_STARTTRANSFER_TIME_T, &answeredAfter);
  return code == CURLE_OUT_OF_MEMORY && answeredAfter > 0;
}

}  // namespace orvane::platform
