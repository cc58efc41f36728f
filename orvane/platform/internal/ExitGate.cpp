#include <orvane/platform/internal/ExitGate.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>

namespace orvane::platform {
namespace {

struct Gate {
  std::mutex mutex;
  std::condition_variable left;
  int inside = 0;
  bool closed = false;
  const pid_t process = getpid();
};

Gate& gate() {
  static auto& instance = *new Gate;
  return instance;
}

void close() {
  auto& gate = platform::gate();
  // The threads inside did not come along into a child process.
  if (gate.process != getpid()) return;
  std::unique_lock lock(gate.mutex);
  gate.closed = true;
  gate.left.wait(lock, [&] { return gate.inside == 0; });
}

}  // namespace

void ExitGate::closeAtExit() {
  gate();
  std::atexit(close);
}

void ExitGate::Passage::enter() {
  std::unique_lock lock(gate().mutex);
  if (!gate().closed) {
    ++gate().inside;
    return;
  }
  lock.unlock();
  for (;;) ::pause();
}

void ExitGate::Passage::leave() {
  const std::lock_guard lock(gate().mutex);
  if (--gate().inside == 0) gate().left.notify_all();
}

}  // namespace orvane::platform
