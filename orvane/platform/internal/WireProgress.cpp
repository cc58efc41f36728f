// The kernel's header, apart from everything that brings in the C library's shorter `tcp_info`.
#include <linux/tcp.h>
#include <netinet/in.h>
#include <orvane/platform/internal/WireProgress.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace orvane::platform {
namespace {

std::vector<int>& openSockets() {
  // Never destroyed: connections may be closed while the process exits.
  static auto& sockets = *new std::vector<int>;
  return sockets;
}

curl_socket_t onOpen(void* /*context*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
  const int opened = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (opened >= 0) openSockets().push_back(opened);
  return opened;
}

int onClose(void* /*context*/, curl_socket_t closing) {
  std::erase(openSockets(), closing);
  return close(closing);
}

int localPortOf(int socket) {
  union {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
  } address{};
  socklen_t size = sizeof address;
  if (getsockname(socket, &address.any, &size) != 0) return 0;
  if (address.any.sa_family == AF_INET) return ntohs(address.v4.sin_port);
  return address.any.sa_family == AF_INET6 ? ntohs(address.v6.sin6_port) : 0;
}

}  // namespace

void watchSockets(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &onOpen);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &onClose);
}

std::uint64_t bytesOnWire(int localPort) {
  std::uint64_t bytes = 0;
  for (const int socket : openSockets()) {
    if (localPortOf(socket) != localPort) continue;
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) continue;
    bytes += info.tcpi_bytes_acked + info.tcpi_bytes_received;
  }
  return bytes;
}

}  // namespace orvane::platform
