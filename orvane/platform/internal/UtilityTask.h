#pragma once

#include <orvane/Async.h>
#include <orvane/platform/BackgroundQueue.h>
#include <orvane/platform/PosixError.h>
#include <orvane/platform/internal/Suspension.h>

#include <cerrno>
#include <type_traits>
#include <utility>

namespace orvane::platform {

/// Runs `work`, which must not throw, on the utility pool and yields its result, or a POSIX error
/// when no thread can be started; the calling coroutine is suspended meanwhile. Work that has begun
/// is not cancelled. When the process exits, the coroutine is left alone.
template <class Work>
Async<std::invoke_result_t<Work&>> utilityTask(Work work) {
  using Outcome = Result<std::invoke_result_t<Work&>>;
  return suspended<Outcome>([work = std::move(work)](auto resume, auto /*cancellation*/) mutable {
    if (!BackgroundQueue::hasUtilityThread()) {
      return resume(std::unexpected(posixError(EAGAIN, "start a thread")));
    }
    BackgroundQueue::utility([work = std::move(work), resume = std::move(resume)]() mutable {
      auto last = std::move(resume);  // Goes, and with it the executor, as soon as it is called.
      last(Outcome(work()));
    });
  });
}

}  // namespace orvane::platform
