#include <orvane/platform/http/TrustedAuthorities.h>

#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/files/FileReader.h>

#include <curl/curl.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <string_view>

namespace orvane::platform {
namespace {

template <auto free>
struct Freeing {
  void operator()(auto* object) const { free(object); }
};
using Bio = std::unique_ptr<BIO, Freeing<BIO_free_all>>;
using Certificate = std::unique_ptr<X509, Freeing<X509_free>>;

/// The system's authorities and those of the host, as PEM; null while there are only the former.
/// Never destroyed: transfers read it.
std::atomic<const std::string*> authorities = nullptr;

/// The certificates in a PEM text, without anything else that it holds; empty when there is none or
/// one cannot be decoded.
std::string certificatesIn(std::string_view pem) {
  const Bio input(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  const Bio output(BIO_new(BIO_s_mem()));
  while (const Certificate certificate{PEM_read_bio_X509(input.get(), nullptr, nullptr, nullptr)}) {
    PEM_write_bio_X509(output.get(), certificate.get());
  }
  const bool reachedEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  ERR_clear_error();
  if (!reachedEnd) return {};
  char* text = nullptr;
  const auto length = BIO_get_mem_data(output.get(), &text);
  return {text, static_cast<std::size_t>(length)};
}

/// What the client library would read by itself. Nothing where there is no such file: the host's
/// authorities are enough for the host's servers.
std::string systemAuthorities() {
  const std::unique_ptr<CURL, Freeing<curl_easy_cleanup>> easy(curl_easy_init());
  const char* path = nullptr;
  curl_easy_getinfo(easy.get(), CURLINFO_CAINFO, &path);
  if (path == nullptr) return {};
  const auto content = readWholeFile(path);
  return content ? std::string(textOf(content->view())).append("\n") : std::string();
}

}  // namespace

Result<void> trustAuthoritiesIn(const std::filesystem::path& file) {
  const auto content = readWholeFile(file);
  if (!content) return std::unexpected(content.error());
  const auto further = certificatesIn(textOf(content->view()));
  if (further.empty()) return std::unexpected(posixError(EINVAL, "certificates"));
  authorities = new std::string(systemAuthorities() + further);
  return {};
}

const std::string* trustedAuthorities() { return authorities; }

}  // namespace orvane::platform
