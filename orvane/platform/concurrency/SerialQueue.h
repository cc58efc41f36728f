#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace orvane::platform {

/// Runs work one at a time, in the order it was submitted.
///
/// `async` work runs on the background pool. `sync` runs on the calling thread whenever no other
/// thread is at work: the caller first does what was queued before, so it never waits for a
/// thread of the pool, and a pool whose threads all call `sync` cannot lock up. While the process
/// exits, and where no thread can be started, `async` does the same.
///
/// Any thread may submit. Work that throws ends the process; it must not call `sync` on its own
/// queue.
///
///     SerialQueue queue("org.example.store");
///     queue.async([&] { value = 1; });
///     int seen = queue.sync([&] { return value; });   // 1
class SerialQueue {
 public:
  /// `label` names the queue for people; it need not be unique.
  explicit SerialQueue(std::string label);
  /// Waits until everything submitted has run; in a forked child nothing does.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  [[nodiscard]] const std::string& label() const noexcept { return label_; }

  /// Queues `work` and returns at once, but for the two cases above.
  void async(std::move_only_function<void()> work);

  /// Runs `work` after everything submitted before it and returns its result. Blocks meanwhile.
  template <class F>
  auto sync(F&& work) -> std::invoke_result_t<F&> {
    if constexpr (std::is_void_v<std::invoke_result_t<F&>>) {
      runAndWait([&] { work(); });
    } else {
      std::optional<std::invoke_result_t<F&>> result;
      runAndWait([&] { result.emplace(work()); });
      return std::move(*result);
    }
  }

 private:
  struct State;
  void runAndWait(std::move_only_function<void()> work);

  std::string label_;
  std::shared_ptr<State> state_;
};

}  // namespace orvane::platform
