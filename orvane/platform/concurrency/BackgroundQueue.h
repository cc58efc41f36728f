#pragma once

#include <functional>

namespace orvane::platform {

/// The engine's pools of threads for detached work, shared by the whole process.
///
/// Any thread may use them. Threads are started as work needs them, and block every signal but the
/// synchronous ones: signals are for the host's own threads. Work must not throw. Work may block
/// for a disk access or a computation, but must not wait for other work of its pool.
///
/// When the process exits, work under way is waited for (see `ProcessExit`), and no other begins.
class BackgroundQueue {
 public:
  using Work = std::move_only_function<void()>;

  /// Runs `work` on a thread of the pool; returns at once. Order is not guaranteed. False when it
  /// will not run: the process exits, or the pool has no thread and none can be started.
  static bool async(Work work);

  /// Whether the pool has a thread, which is started if need be. From then on it always has.
  [[nodiscard]] static bool hasThread();

  /// The same two for long computations that nobody waits for: on a pool of its own, with as many
  /// threads as there are cores, whose scheduling priority is lowered by 10 and whose disk accesses
  /// come last. Threads that such work creates inherit that.
  static bool utility(Work work);
  [[nodiscard]] static bool hasUtilityThread();
};

}  // namespace orvane::platform
