#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace orvane::platform {

/// Runs work in submission order on the background pool, at most a given number at a time.
///
/// Any thread may submit. Work must not throw. Work that was submitted still runs when the queue
/// object is destroyed first. When the process exits, work that has not begun does not run; nor
/// does it where the pool has no thread, so see to that first (`BackgroundQueue::hasThread`).
class OperationQueue {
 public:
  /// A limit of 0 counts as 1.
  explicit OperationQueue(std::size_t maxConcurrentOperations);

  /// Queues `work` and returns at once.
  void async(std::move_only_function<void()> work);

 private:
  struct State;
  static void drain(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
};

}  // namespace orvane::platform
