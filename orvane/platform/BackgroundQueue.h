#pragma once

#include <functional>

namespace orvane::platform {

/// The engine's pools of threads for detached work, shared by the whole process.
///
/// Any thread may use them. Their threads take no signals: those are for the host's own. Work must
/// not throw. Work may block for a disk access or a computation, but must not wait for other work
/// of its pool.
class BackgroundQueue {
 public:
  /// Runs `work` on a thread of the pool; returns at once. Order is not guaranteed.
  static void async(std::move_only_function<void()> work);

  /// The same for long computations that nobody waits for: on a pool of its own, with as many
  /// threads as there are cores, whose scheduling priority is lowered by 10 and whose disk accesses
  /// come last. Threads that such work creates inherit that.
  static void utility(std::move_only_function<void()> work);
};

}  // namespace orvane::platform
