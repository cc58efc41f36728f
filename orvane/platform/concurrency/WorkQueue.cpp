#include <orvane/platform/concurrency/WorkQueue.h>

#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/platform/concurrency/ProcessExit.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace orvane::platform {

/// All functions are called with the lock held.
struct WorkQueue::State : std::enable_shared_from_this<State> {
  using Lock = std::unique_lock<std::mutex>;

  explicit State(std::size_t most) : limit(std::max(most, std::size_t{1})) {}

  const std::size_t limit;
  std::mutex mutex;
  std::condition_variable progress;  ///< A waiter's work has run, or a thread has left the queue.
  std::deque<std::move_only_function<void()>> pending;
  std::size_t draining = 0;   ///< Threads that run work.
  std::size_t scheduled = 0;  ///< Threads of the pool that have been asked to.

  /// Runs work until none is pending or `stop()`; the lock is released while work runs. Work that
  /// throws ends the process: going on with half a change would be worse.
  template <class Stop>
  void drain(Lock& lock, const Stop& stop) noexcept {
    ++draining;
    while (!pending.empty() && !stop()) {
      auto work = std::move(pending.front());
      pending.pop_front();
      lock.unlock();
      work();
      work = nullptr;  // What the work holds is released outside the lock.
      lock.lock();
    }
    --draining;
    progress.notify_all();
  }

  /// Asks the pool for a thread where one more may drain. False when the pool gives none any more.
  bool schedule() {
    // What the pool had accepted when the process began to exit may never run.
    if (ProcessExit::hasBegun()) return false;
    if (draining + scheduled >= limit) return true;
    const bool accepted = BackgroundQueue::async([state = shared_from_this()] {
      Lock inPool(state->mutex);
      --state->scheduled;
      if (state->draining < state->limit) state->drain(inPool, ProcessExit::hasBegun);
    });
    scheduled += accepted ? 1 : 0;
    return accepted;
  }
};

WorkQueue::WorkQueue(std::size_t limit, std::string label)
    : label_(std::move(label)), state_(std::make_shared<State>(limit)) {}

bool WorkQueue::async(std::move_only_function<void()> work) {
  const State::Lock lock(state_->mutex);
  state_->pending.push_back(std::move(work));
  return state_->schedule();
}

void WorkQueue::runAndWait(std::move_only_function<void()> work) {
  auto& state = *state_;
  bool done = false;
  State::Lock lock(state.mutex);
  state.pending.emplace_back([&] {
    work();
    const std::lock_guard finishing(state.mutex);
    done = true;
    state.progress.notify_all();
  });
  while (!done) {
    if (state.draining == state.limit || state.pending.empty()) {
      state.progress.wait(lock);
    } else {
      state.drain(lock, [&done] { return done; });
    }
  }
  // Work that came meanwhile is the pool's, or this thread's where the pool gives no thread.
  while (!state.pending.empty() && state.draining < state.limit && !state.schedule()) {
    state.drain(lock, [] { return false; });
  }
}

}  // namespace orvane::platform
