#pragma once

#include <orvane/Error.h>

#include <functional>

namespace orvane::platform {

/// The engine's part in the exit of the process.
///
/// The engine's threads and its process-wide objects are never destroyed. Instead, when the process
/// begins to exit, these things happen once, in this order:
///
/// 1. No work of the engine's threads begins any more: work still queued, callbacks of the host
///    included, is left where it is.
/// 2. The steps of `Stage::transfers` run.
/// 3. The exit waits for work that is under way in a `Passage`, at most ten seconds.
/// 4. The steps of `Stage::stores` run.
///
/// Where `main` returns, or its thread or a thread of the engine calls `exit`, this comes before
/// any static object is destroyed and any exit handler runs. Where another thread calls `exit`, or
/// where a thread other than that of `main` has loaded the library, it comes before static objects
/// are destroyed that existed at the latest call of `watch`.
///
/// A forked child has copies of all this, but neither the threads nor the right to write: its exit
/// does nothing here.
class ProcessExit {
 public:
  enum class Stage {
    transfers,  ///< Ends what work under way may wait for.
    stores      ///< Writes what is left to write.
  };

  /// Has `step` run in its stage. False when the exit has begun; then it will not run.
  static bool add(Stage stage, std::function<void()> step);

  /// Call before the first `Passage`, and again once a library has been started whose exit handlers
  /// must run after this: handlers run in the reverse order of their registration.
  static void watch();

  /// Has the calling thread, which ends only with the process, begin the exit when it calls `exit`.
  static void watchThisThread();

  [[nodiscard]] static bool hasBegun() noexcept;

  /// Whether this process was forked from one that used the engine.
  [[nodiscard]] static bool isForkedChild() noexcept;

  /// What operations fail with that the exit does not let begin or go on.
  [[nodiscard]] static Error error();

  /// Work that the exit waits for, from construction to destruction. False when the exit has begun:
  /// then libraries and the host's objects may be gone already. Long work should end early once
  /// `hasBegun`. One may hold another.
  class Passage {
   public:
    Passage();
    ~Passage();
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

    [[nodiscard]] explicit operator bool() const noexcept { return entered_; }

   private:
    bool entered_;
  };
};

}  // namespace orvane::platform
