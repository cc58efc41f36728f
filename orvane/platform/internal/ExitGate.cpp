#include <orvane/platform/internal/ExitGate.h>
#include <unistd.h>

#include <mutex>

namespace orvane::platform {
namespace {

struct Gate {
  std::shared_mutex mutex;
  bool closed = false;
};

Gate& gate() {
  static auto& instance = *new Gate;
  return instance;
}

struct CloseAtExit {
  CloseAtExit() = default;
  CloseAtExit(const CloseAtExit&) = delete;
  CloseAtExit& operator=(const CloseAtExit&) = delete;
  ~CloseAtExit() {
    const std::lock_guard lock(gate().mutex);
    gate().closed = true;
  }
};

}  // namespace

void ExitGate::prepare() { static const CloseAtExit closeAtExit; }

ExitGate::Passage::Passage() : lock_(gate().mutex) {
  if (!gate().closed) return;
  lock_.unlock();
  for (;;) pause();
}

}  // namespace orvane::platform
