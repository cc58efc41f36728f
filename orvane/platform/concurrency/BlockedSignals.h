#pragma once

#include <csignal>
#include <initializer_list>

namespace orvane::platform {

/// While it lives, the calling thread and those that it creates take no signals but the synchronous
/// ones, which report a fault of the thread itself: the others belong to the host's own threads.
/// (Were the synchronous ones blocked, a fault would end the process past the host's handler.)
class BlockedSignals {
 public:
  BlockedSignals() noexcept {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
      sigdelset(&blocked, signal);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &former_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t former_{};
};

}  // namespace orvane::platform
