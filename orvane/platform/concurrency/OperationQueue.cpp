#include <orvane/platform/concurrency/OperationQueue.h>

#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/platform/concurrency/ProcessExit.h>

#include <algorithm>
#include <deque>
#include <mutex>

namespace orvane::platform {

struct OperationQueue::State {
  std::mutex mutex;
  std::deque<std::move_only_function<void()>> pending;
  std::size_t idle = 0;  ///< How many more threads may drain the queue.
};

OperationQueue::OperationQueue(std::size_t maxConcurrentOperations)
    : state_(std::make_shared<State>()) {
  state_->idle = std::max(maxConcurrentOperations, std::size_t{1});
}

void OperationQueue::async(std::move_only_function<void()> work) {
  const std::lock_guard lock(state_->mutex);
  state_->pending.push_back(std::move(work));
  if (state_->idle == 0) return;
  --state_->idle;
  BackgroundQueue::async([state = state_] { drain(state); });
}

void OperationQueue::drain(const std::shared_ptr<State>& state) {
  std::unique_lock lock(state->mutex);
  while (!state->pending.empty() && !ProcessExit::hasBegun()) {
    auto work = std::move(state->pending.front());
    state->pending.pop_front();
    lock.unlock();
    work();
    work = nullptr;  // What the work holds is released outside the lock.
    lock.lock();
  }
  ++state->idle;
}

}  // namespace orvane::platform
