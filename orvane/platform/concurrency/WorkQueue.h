#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace orvane::platform {

/// Runs work in submission order, at most a given number at a time.
///
/// `async` work runs on the background pool. `sync` runs on the calling thread whenever the limit
/// leaves room for it: the caller first does what was queued before, so it never waits for a thread
/// of the pool, and a pool whose threads all call `sync` cannot lock up.
///
/// Any thread may submit. Copies are the same queue; what is queued still runs when all of them are
/// gone. Work that throws ends the process; with a limit of 1 it must not call `sync` on its queue.
///
///     WorkQueue queue(1);
///     queue.async([&] { value = 1; });
///     int seen = queue.sync([&] { return value; });   // 1
class WorkQueue {
 public:
  /// `limit` works run at a time; 0 counts as 1. `label` names the queue for people.
  explicit WorkQueue(std::size_t limit, std::string label = {});

  [[nodiscard]] const std::string& label() const noexcept { return label_; }

  /// Queues `work` and returns at once. False when no thread may come to run it: the process exits
  /// or the pool has no thread. Then it waits for a call of `sync`, which runs all that is queued.
  bool async(std::move_only_function<void()> work);

  /// Runs `work` in its turn, with a limit of 1 after everything submitted before it, and returns
  /// its result. Blocks meanwhile.
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
