#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace orvane::benchmarks {

/// An object store that takes everything and keeps nothing, in a process of its own so that its
/// work does not count as the client's. Make it before the first thread.
class Sink {
 public:
  enum class Security { none, tls };

  explicit Sink(Security security = Security::none);
  ~Sink();
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  /// The certificate with which it vouches for itself, if it does (PEM).
  [[nodiscard]] const std::string& certificate() const { return certificate_; }

 private:
  pid_t process_ = -1;
  std::uint16_t port_ = 0;
  std::string certificate_;
};

/// A TCP connection to a port of this machine; throws when there is none.
[[nodiscard]] int connectTo(std::uint16_t port);

}  // namespace orvane::benchmarks
