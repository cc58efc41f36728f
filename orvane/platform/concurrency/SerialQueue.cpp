#include <orvane/platform/concurrency/SerialQueue.h>

#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/platform/concurrency/ProcessExit.h>

#include <condition_variable>
#include <deque>
#include <mutex>

namespace orvane::platform {

struct SerialQueue::State : std::enable_shared_from_this<State> {
  using Lock = std::unique_lock<std::mutex>;

  std::mutex mutex;
  std::condition_variable progress;  ///< A waiter's work has run, or nobody drains any more.
  std::deque<std::move_only_function<void()>> pending;
  bool scheduled = false;  ///< A thread of the pool has been asked to drain.
  bool draining = false;   ///< Some thread is running work.

  /// Runs work until none is pending or `done` is set. Needs the lock, released while work runs.
  /// Work that throws ends the process: going on with half a change would be worse.
  void drain(Lock& lock, const bool& done) noexcept {
    draining = true;
    while (!pending.empty() && !done) {
      auto work = std::move(pending.front());
      pending.pop_front();
      lock.unlock();
      work();
      work = nullptr;  // What the work holds is released outside the lock.
      lock.lock();
    }
    draining = false;
    progress.notify_all();
    drainSoon(lock);
  }

  void drainAll(Lock& lock) {
    const bool untilEmpty = false;
    if (!draining) drain(lock, untilEmpty);
  }

  /// Has the pool drain, or drains at once where that no longer happens. Needs the lock.
  void drainSoon(Lock& lock) {
    if (draining || pending.empty()) return;
    // What the pool had accepted when the process began to exit may never run.
    if (scheduled && !ProcessExit::hasBegun()) return;
    scheduled = BackgroundQueue::async([state = shared_from_this()] {
      Lock inPool(state->mutex);
      state->scheduled = false;
      state->drainAll(inPool);
    });
    if (!scheduled) drainAll(lock);
  }
};

SerialQueue::SerialQueue(std::string label)
    : label_(std::move(label)), state_(std::make_shared<State>()) {}

SerialQueue::~SerialQueue() {
  if (!ProcessExit::isForkedChild()) runAndWait([] {});
}

void SerialQueue::async(std::move_only_function<void()> work) {
  State::Lock lock(state_->mutex);
  state_->pending.push_back(std::move(work));
  state_->drainSoon(lock);
}

void SerialQueue::runAndWait(std::move_only_function<void()> work) {
  bool done = false;
  State::Lock lock(state_->mutex);
  state_->pending.emplace_back([&] {
    work();
    const std::lock_guard finishing(state_->mutex);
    done = true;
    state_->progress.notify_all();
  });
  while (!done) {
    if (state_->draining) {
      state_->progress.wait(lock);
    } else {
      state_->drain(lock, done);
    }
  }
}

}  // namespace orvane::platform
