#pragma once

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/platform/concurrency/Suspension.h>

#include <cerrno>
#include <expected>
#include <type_traits>
#include <utility>

namespace orvane::platform {

/// Runs `work`, which must not throw, on the utility pool and yields its result; when no thread can
/// be started, that of `withoutThread`, which gets the POSIX error. The calling coroutine is
/// suspended meanwhile. Work that has begun is not cancelled. When the process exits, the coroutine
/// is left alone.
///
/// `hasThread` and `run` name the pool: those of the background pool will do as well.
template <class Work, class WithoutThread>
boost::asio::awaitable<std::invoke_result_t<Work&>> utilityTask(
    Work work, WithoutThread withoutThread,
    bool (*hasThread)() = &BackgroundQueue::hasUtilityThread,
    bool (*run)(BackgroundQueue::Work) = &BackgroundQueue::utility) {
  using Value = std::invoke_result_t<Work&>;
  return suspended<Value>([=, work = std::move(work), withoutThread = std::move(withoutThread)](
                              auto resume, auto /*cancellation*/) mutable {
    if (!hasThread()) return resume(withoutThread(posixError(EAGAIN, "start a thread")));
    run([work = std::move(work), resume = std::move(resume)]() mutable {
      auto last = std::move(resume);  // Goes, and with it the executor, as soon as it is called.
      last(work());
    });
  });
}

/// The same on the background pool; `work` yields a `Result`, which holds that error.
template <class Work>
boost::asio::awaitable<std::invoke_result_t<Work&>> backgroundTask(Work work) {
  return utilityTask(
      std::move(work), [](Error error) { return std::unexpected(std::move(error)); },
      &BackgroundQueue::hasThread, &BackgroundQueue::async);
}

}  // namespace orvane::platform
