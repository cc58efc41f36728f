#pragma once

#include <curl/curl.h>

namespace orvane::platform {

/// Idle connections that the transfers of one session may reuse.
///
/// Made on any thread; used and released under the lock of the `TransferLoop`, since connections
/// may still be open in it. Never to be destroyed by who holds that lock.
class ConnectionCache {
 public:
  ConnectionCache();
  ~ConnectionCache();
  ConnectionCache(const ConnectionCache&) = delete;
  ConnectionCache& operator=(const ConnectionCache&) = delete;

  /// Null when memory ran out; then transfers share no connections.
  [[nodiscard]] CURLSH* handle() const noexcept { return handle_; }

 private:
  CURLSH* handle_;
};

}  // namespace orvane::platform
