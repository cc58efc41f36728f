#pragma once

#include <orvane/Error.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace backup {

/// What an upload reports: bytes sent so far, or its outcome.
struct Event {
  std::size_t item;
  std::int64_t bytesSent = 0;
  std::optional<orvane::Result<void>> outcome = {};
};

/// Takes events from the engine's threads to the one that runs the backup.
class EventQueue {
 public:
  void push(Event event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_one();
  }

  /// All events so far; waits a while for the first one.
  [[nodiscard]] std::vector<Event> take(std::chrono::milliseconds atMost) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, atMost, [this] { return !events_.empty(); });
    return std::exchange(events_, {});
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Event> events_;
};

}  // namespace backup
