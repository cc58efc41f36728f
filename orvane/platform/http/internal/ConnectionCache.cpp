#include <orvane/platform/http/internal/ConnectionCache.h>

#include <orvane/platform/http/internal/TransferLoop.h>

namespace orvane::platform {

ConnectionCache::ConnectionCache() {
  TransferLoop::shared();  // Sets the client library up.
  handle_ = curl_share_init();
  // No lock functions: the lock of the TransferLoop is held whenever it is used.
  curl_share_setopt(handle_, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
}

ConnectionCache::~ConnectionCache() { TransferLoop::shared().release(handle_); }

}  // namespace orvane::platform
