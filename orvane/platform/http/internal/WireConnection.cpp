// The kernel's header, apart from everything that brings in the C library's shorter `tcp_info`.
#include <orvane/platform/http/internal/WireConnection.h>

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <ranges>
#include <string_view>
#include <unordered_map>

namespace orvane::platform {
namespace {

struct EndsHash {
  std::size_t operator()(const WireConnection::Ends& ends) const {
    const auto ports = static_cast<std::size_t>((ends.localPort << 16) ^ ends.remotePort);
    return ports ^ std::hash<std::string_view>()(ends.remoteAddress);
  }
};

auto& openConnections() {
  // Never destroyed: connections may be closed while the process exits.
  static auto& connections =
      *new std::unordered_map<WireConnection::Ends, std::shared_ptr<WireConnection>, EndsHash>;
  return connections;
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

std::shared_ptr<WireConnection> WireConnection::between(const Ends& ends,
                                                        std::span<const int> opened) {
  auto& connection = openConnections()[ends];
  if (connection && opened.empty()) return connection;
  connection = std::make_shared<WireConnection>();
  const auto newestFirst = opened | std::views::reverse;
  const auto found = std::ranges::find(newestFirst, ends.localPort, &localPortOf);
  if (found != newestFirst.end()) connection->socket_ = *found;
  return connection;
}

void WireConnection::watchClosing(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &WireConnection::onClose);
}

WireConnection::Bytes WireConnection::moved() const {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (socket_ < 0 || getsockopt(socket_, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return atClose_;
  return {.acknowledged = info.tcpi_bytes_acked, .received = info.tcpi_bytes_received};
}

bool WireConnection::hasArrivals() const {
  int unread = 0;
  return ioctl(socket_, FIONREAD, &unread) == 0 && unread > 0;
}

int WireConnection::onClose(void* /*context*/, curl_socket_t closing) {
  std::erase_if(openConnections(), [&](const auto& entry) {
    auto& connection = *entry.second;
    if (connection.socket_ != closing) return false;
    connection.atClose_ = connection.moved();
    connection.socket_ = -1;
    return true;
  });
  return close(closing);
}

}  // namespace orvane::platform
