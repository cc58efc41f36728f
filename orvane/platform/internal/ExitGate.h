#pragma once

namespace orvane::platform {

/// Lets threads of the engine pass only until the process begins to exit. After that the host's
/// objects go, and libraries take down what they hold, one by one: whoever would still use them is
/// kept here until the process has ended.
class ExitGate {
 public:
  /// Closes the gate at exit: after that, objects go that existed at this call. To be called before
  /// the first passage, and again after a library has been started with all that it makes then.
  static void closeAtExit();

  /// Inside as long as this object lives. One in a thread at a time.
  class Passage {
   public:
    Passage() { enter(); }
    ~Passage() { leave(); }
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

    /// To be called now and then by long work, for whose steps the exit would otherwise wait.
    static void pause() {
      leave();
      enter();
    }

   private:
    static void enter();
    static void leave();
  };
};

}  // namespace orvane::platform
