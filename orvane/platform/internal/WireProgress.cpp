// The kernel's header, apart from everything that brings in the C library's shorter `tcp_info`.
#include <linux/tcp.h>
#include <netinet/in.h>
#include <orvane/platform/internal/WireProgress.h>
#include <sys/socket.h>

namespace orvane::platform {

std::uint64_t bytesOnWire(int socket) noexcept {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return 0;
  return info.tcpi_bytes_acked + info.tcpi_bytes_received;
}

}  // namespace orvane::platform
