#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace orvane::platform {

/// A TCP connection of the client library, known from its first request until it is closed.
///
/// It says what really moves. The library's own figures are not enough to tell a slow transfer from
/// a dead one: the kernel may hold megabytes that count as sent, and on a slow line they move long
/// after those figures have come to rest; nor do they count a head that comes byte by byte.
///
/// Everything here belongs to whoever holds the lock of the `TransferLoop`.
class WireConnection {
 public:
  struct Bytes {
    std::uint64_t acknowledged = 0;  ///< By the peer's kernel.
    std::uint64_t received = 0;      ///< The peer's orderly close counts as one more.
    bool operator==(const Bytes&) const = default;
  };
  /// Both ends of a connection; no two that are open share them.
  struct Ends {
    std::string localAddress;
    int localPort;
    std::string remoteAddress;
    int remotePort;
    bool operator==(const Ends&) const = default;
  };

  /// The connection between these ends: the one that an earlier request used or, if `opened` names
  /// any sockets, a new one over the newest of them that has this local port.
  [[nodiscard]] static std::shared_ptr<WireConnection> between(const Ends& ends,
                                                               std::span<const int> opened);

  /// Has the library tell when it closes a connection that `easy` makes.
  static void watchClosing(CURL* easy);

  /// Since it was made; of a closed connection, until then.
  [[nodiscard]] Bytes moved() const;

  /// Whether bytes have arrived that nobody has read yet.
  [[nodiscard]] bool hasArrivals() const;

 private:
  static int onClose(void* context, curl_socket_t closing);

  int socket_ = -1;
  Bytes atClose_;
};

}  // namespace orvane::platform
