#include <orvane/platform/concurrency/BackgroundQueue.h>

#include <orvane/platform/concurrency/internal/ThreadPool.h>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <thread>
#include <utility>

namespace orvane::platform {
namespace {

/// The arguments of ioprio_set(2). The C library does not declare them, and some releases of the
/// kernel's own header, <linux/ioprio.h>, are no C++.
constexpr int kIoprioWhoProcess = 1;
constexpr int kIoprioLowestBestEffort = 2 << 13 | 7;  // class << 13 | level

/// Lowers the calling thread's priority, which cannot be raised again. In Linux it is each
/// thread's own, under the thread's number.
void lowerPriority() {
  constexpr int kSteps = 10;
  const auto thread = static_cast<id_t>(gettid());
  setpriority(PRIO_PROCESS, thread, getpriority(PRIO_PROCESS, thread) + kSteps);
  syscall(SYS_ioprio_set, kIoprioWhoProcess, thread, kIoprioLowestBestEffort);
}

std::size_t processors() { return std::max(1U, std::thread::hardware_concurrency()); }

ThreadPool& backgroundPool() {
  // At least four threads, so that callbacks of a host that block briefly leave room.
  static auto& pool = *new ThreadPool(std::max(std::size_t{4}, processors()), [] {});
  return pool;
}

ThreadPool& utilityPool() {
  static auto& pool = *new ThreadPool(processors(), lowerPriority);
  return pool;
}

}  // namespace

bool BackgroundQueue::async(Work work) { return backgroundPool().run(std::move(work)); }

bool BackgroundQueue::hasThread() { return backgroundPool().hasThread(); }

bool BackgroundQueue::utility(Work work) { return utilityPool().run(std::move(work)); }

bool BackgroundQueue::hasUtilityThread() { return utilityPool().hasThread(); }

}  // namespace orvane::platform
