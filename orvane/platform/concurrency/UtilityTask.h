#pragma once

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/platform/concurrency/Suspension.h>

#include <cerrno>
#include <type_traits>
#include <utility>

namespace orvane::platform {

/// Runs `work`, which must not throw, on the utility pool and yields its result; when no thread can
/// be started, that of `withoutThread`, which gets the POSIX error. The calling coroutine is
/// suspended meanwhile. Work that has begun is not cancelled. When the process exits, the coroutine
/// is left alone.
template <class Work, class WithoutThread>
boost::asio::awaitable<std::invoke_result_t<Work&>> utilityTask(Work work,
                                                                WithoutThread withoutThread) {
  using Value = std::invoke_result_t<Work&>;
  return suspended<Value>([work = std::move(work), withoutThread = std::move(withoutThread)](
                              auto resume, auto /*cancellation*/) mutable {
    if (!BackgroundQueue::hasUtilityThread()) {
      return resume(withoutThread(posixError(EAGAIN, "start a thread")));
    }
    BackgroundQueue::utility([work = std::move(work), resume = std::move(resume)]() mutable {
      auto last = std::move(resume);  // Goes, and with it the executor, as soon as it is called.
      last(work());
    });
  });
}

}  // namespace orvane::platform
