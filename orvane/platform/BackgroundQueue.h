#pragma once

#include <functional>

namespace orvane::platform {

/// The engine's pool of threads for detached work, shared by the whole process.
///
/// Any thread may use it. Its threads take no signals: those are for the host's own. Work must not
/// throw. Work may block for a disk access or a computation, but must not wait for other work of
/// the pool.
class BackgroundQueue {
 public:
  /// Runs `work` on a thread of the pool; returns at once. Order is not guaranteed.
  static void async(std::move_only_function<void()> work);
};

}  // namespace orvane::platform
