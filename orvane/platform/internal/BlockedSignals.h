#pragma once

#include <csignal>

namespace orvane::platform {

/// While it lives, the calling thread takes no signals and threads it creates never will: signals
/// belong to the host's own threads.
class BlockedSignals {
 public:
  BlockedSignals() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t former_{};
};

}  // namespace orvane::platform
