#pragma once

#include <sys/types.h>

#include <cstdint>

namespace orvane::benchmarks {

/// An object store that takes everything and keeps nothing, in a process of its own so that its
/// work does not count as the client's. Make it before the first thread.
class Sink {
 public:
  Sink();
  ~Sink();
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  pid_t process_ = -1;
  std::uint16_t port_ = 0;
};

/// A TCP connection to a port of this machine; throws when there is none.
[[nodiscard]] int connectTo(std::uint16_t port);

}  // namespace orvane::benchmarks
