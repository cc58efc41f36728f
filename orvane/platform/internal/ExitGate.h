#pragma once

#include <shared_mutex>

namespace orvane::platform {

/// Keeps threads of the engine off what belongs to the host, once the process has begun to exit and
/// that may be gone.
class ExitGate {
 public:
  /// Closes the gate at exit, before objects go that existed at the first call. To be called by the
  /// host's thread, before it hands something over.
  static void prepare();

  /// Open until this object goes; a thread that comes too late stays here until the process ends.
  class Passage {
   public:
    Passage();

   private:
    std::shared_lock<std::shared_mutex> lock_;
  };
};

}  // namespace orvane::platform
