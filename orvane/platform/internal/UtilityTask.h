#pragma once

#include <orvane/platform/BackgroundQueue.h>
#include <orvane/platform/internal/ExitGate.h>
#include <orvane/platform/internal/Suspension.h>

#include <type_traits>
#include <utility>

namespace orvane::platform {

/// Runs `work`, which must not throw, on the utility pool and yields its result; the calling
/// coroutine is suspended meanwhile. Work that has begun is not cancelled. When the process exits,
/// the coroutine is left alone.
template <class Work>
boost::asio::awaitable<std::invoke_result_t<Work&>> utilityTask(Work work) {
  using Value = std::invoke_result_t<Work&>;
  return suspended<Value>([work = std::move(work)](auto resume, auto /*cancellation*/) mutable {
    [[maybe_unused]] static const bool prepared = (ExitGate::closeAtExit(), true);
    BackgroundQueue::utility([work = std::move(work), resume = std::move(resume)]() mutable {
      auto value = work();
      const ExitGate::Passage passage;
      auto last = std::move(resume);  // Goes before the passage does, and with it the executor.
      last(std::move(value));
    });
  });
}

}  // namespace orvane::platform
