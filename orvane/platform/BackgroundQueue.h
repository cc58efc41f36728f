#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <functional>

namespace orvane::platform {

/// The engine's pool of threads for detached work, shared by the whole process.
///
/// Any thread may use it. Work must not throw. Work may block for a disk access or a computation,
/// but must not wait for other work of the pool.
class BackgroundQueue {
 public:
  /// Runs `work` on a thread of the pool; returns at once. Order is not guaranteed.
  static void async(std::move_only_function<void()> work);

  /// The pool as an executor, for coroutines.
  [[nodiscard]] static boost::asio::any_io_executor executor();
};

}  // namespace orvane::platform
