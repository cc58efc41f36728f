#include "Sink.h"

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvane::benchmarks {
namespace {

constexpr std::string_view kAnswer =
    "HTTP/1.1 200 OK\r\nETag: \"tag\"\r\nContent-Length: "
    "39\r\n\r\n<UploadId>id</UploadId><ETag>tag</ETag>";

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::size_t contentLength(std::string_view head) {
  constexpr std::string_view kName = "Content-Length: ";
  const auto found = head.find(kName);
  if (found == std::string_view::npos) return 0;
  std::size_t length = 0;
  const auto* start = head.data() + found + kName.size();
  std::from_chars(start, head.data() + head.size(), length);
  return length;
}

/// One client, over TLS where there is a context for it.
class Client {
 public:
  Client(int connection, SSL_CTX* context) : connection_(connection) {
    if (context == nullptr) return;
    ssl_ = SSL_new(context);
    SSL_set_fd(ssl_, connection);
    SSL_accept(ssl_);
  }
  ~Client() {
    SSL_free(ssl_);
    close(connection_);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// Reads; without TLS what is to be thrown away anyway is not even copied.
  ssize_t read(std::vector<char>& buffer, std::size_t most, bool discards) {
    const auto size = std::min(most, buffer.size());
    if (ssl_ != nullptr) return SSL_read(ssl_, buffer.data(), static_cast<int>(size));
    return recv(connection_, buffer.data(), size, discards ? MSG_TRUNC : 0);
  }
  ssize_t write(std::string_view text) {
    if (ssl_ != nullptr) return SSL_write(ssl_, text.data(), static_cast<int>(text.size()));
    return send(connection_, text.data(), text.size(), MSG_NOSIGNAL);
  }

 private:
  int connection_;
  SSL* ssl_ = nullptr;
};

/// Answers one request after the other until the client goes.
void serve(int connection, SSL_CTX* context) {
  Client client(connection, context);
  std::vector<char> buffer(1 << 20);
  std::string head;
  for (;;) {
    const auto headEnd = head.find("\r\n\r\n");
    if (headEnd == std::string::npos) {
      const ssize_t count = client.read(buffer, buffer.size(), false);
      if (count <= 0) return;
      head.append(buffer.data(), static_cast<std::size_t>(count));
      continue;
    }
    const auto here = head.size() - (headEnd + 4);
    for (auto left = contentLength(head) - std::min(here, contentLength(head)); left > 0;) {
      const ssize_t count = client.read(buffer, left, true);
      if (count <= 0) return;
      left -= static_cast<std::size_t>(count);
    }
    head.clear();
    if (client.write(kAnswer) <= 0) return;
  }
}

/// A context with a certificate for 127.0.0.1 that vouches for itself; its text goes to `pem`.
SSL_CTX* secured(std::string& pem) {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* certificate = X509_new();
  X509_set_version(certificate, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate), 24L * 60 * 60);
  X509_set_pubkey(certificate, key);
  X509_NAME* const subject = X509_get_subject_name(certificate);
  const std::string commonName = "127.0.0.1";
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0);
  X509_set_issuer_name(certificate, subject);
  X509_EXTENSION* name =
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "IP:127.0.0.1");
  X509_add_ext(certificate, name, -1);
  X509_sign(certificate, key, EVP_sha256());
  BIO* text = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(text, certificate);
  char* data = nullptr;
  const auto size = static_cast<std::size_t>(BIO_get_mem_data(text, &data));
  pem.assign(data, size);
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, certificate);
  SSL_CTX_use_PrivateKey(context, key);
  return context;
}

}  // namespace

Sink::Sink(Security security) {
  SSL_CTX* const context = security == Security::tls ? secured(certificate_) : nullptr;
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  auto address = loopback(0);
  socklen_t size = sizeof address;
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener, 64) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("sink");
  }
  port_ = ntohs(address.sin_port);
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) std::thread(serve, accept(listener, nullptr, nullptr), context).detach();
  }
  close(listener);
}

Sink::~Sink() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

int connectTo(std::uint16_t port) {
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto address = loopback(port);
  if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("connect");
  }
  const int on = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return connection;
}

}  // namespace orvane::benchmarks
