#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace orvane::platform {

/// Threads that are started as work needs them and end with the process only, so it must never be
/// destroyed. Any thread may call.
class ThreadPool {
 public:
  using Work = std::move_only_function<void()>;

  /// `prepareThread` is the first thing that each of at most `size` threads does.
  ThreadPool(std::size_t size, void (*prepareThread)());
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// Has a thread run `work` within a passage of `ProcessExit`. False when that will not happen:
  /// the process exits (then `work` is kept, since what it holds may be of use to nobody but must
  /// not be destroyed behind the back of its owner), or there is no thread to run it (then `work`
  /// is destroyed, also while the process exits).
  bool run(Work work);

  /// Whether there is a thread, which is started if need be.
  [[nodiscard]] bool hasThread();

 private:
  /// Starts a thread when there is more work than idle threads. Needs the lock.
  void growFor(std::size_t work);
  void serve();

  const std::size_t size_;
  void (*const prepareThread_)();
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Work> pending_;
  std::size_t threads_ = 0;
  std::size_t idle_ = 0;
};

}  // namespace orvane::platform
