#pragma once

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/platform/concurrency/Suspension.h>

#include <cerrno>
#include <type_traits>
#include <utility>

namespace orvane::platform {

/// Runs `work`, which yields a `Result` and must not throw, on the background pool, and yields the
/// same; when no thread can be started, a POSIX error. The calling coroutine is suspended
/// meanwhile. Work that has begun is not cancelled. When the process exits, the coroutine is left
/// alone.
template <class Work>
boost::asio::awaitable<std::invoke_result_t<Work&>> backgroundTask(Work work) {
  using Value = std::invoke_result_t<Work&>;
  return suspended<Value>([work = std::move(work)](auto resume, auto /*cancellation*/) mutable {
    if (!BackgroundQueue::hasThread()) {
      return resume(std::unexpected(posixError(EAGAIN, "start a thread")));
    }
    BackgroundQueue::async([work = std::move(work), resume = std::move(resume)]() mutable {
      auto last = std::move(resume);  // Goes, and with it the executor, as soon as it is called.
      last(work());
    });
  });
}

}  // namespace orvane::platform
