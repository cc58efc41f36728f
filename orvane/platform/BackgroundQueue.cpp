#include <orvane/platform/BackgroundQueue.h>
#include <orvane/platform/internal/BlockedSignals.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <cstddef>
#include <thread>
#include <utility>

namespace orvane::platform {
namespace {

/// Never destroyed: work may still be running when the process exits, and must not find the pool
/// gone.
boost::asio::thread_pool& newPool(std::size_t minimumThreads) {
  const BlockedSignals blocked;
  return *new boost::asio::thread_pool(
      std::max(minimumThreads, std::size_t{std::thread::hardware_concurrency()}));
}

/// The arguments of ioprio_set(2). The C library does not declare them, and some releases of the
/// kernel's own header, <linux/ioprio.h>, are no C++.
constexpr int kIoprioWhoProcess = 1;
constexpr int kIoprioLowestBestEffort = 2 << 13 | 7;  // class << 13 | level

/// Lowers the calling thread's priority, which cannot be raised again. In Linux it is each
/// thread's own, under the thread's number.
bool lowerPriority() {
  constexpr int kSteps = 10;
  const auto thread = static_cast<id_t>(gettid());
  setpriority(PRIO_PROCESS, thread, getpriority(PRIO_PROCESS, thread) + kSteps);
  syscall(SYS_ioprio_set, kIoprioWhoProcess, thread, kIoprioLowestBestEffort);
  return true;
}

}  // namespace

void BackgroundQueue::async(std::move_only_function<void()> work) {
  // At least four threads, so that callbacks of a host that block briefly leave room.
  static auto& pool = newPool(4);
  boost::asio::post(pool, std::move(work));
}

void BackgroundQueue::utility(std::move_only_function<void()> work) {
  static auto& pool = newPool(1);
  boost::asio::post(pool, [work = std::move(work)]() mutable {
    [[maybe_unused]] thread_local const bool lowered = lowerPriority();
    work();
  });
}

}  // namespace orvane::platform
