#include <orvane/platform/concurrency/ProcessExit.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace orvane::platform {
namespace {

constexpr std::chrono::seconds kMaxWait{10};

struct State {
  const pid_t process = getpid();
  std::mutex mutex;
  std::condition_variable left;
  std::atomic<bool> begun = false;  ///< Changed under the lock only.
  int inside = 0;                   ///< Passages of all threads.
  std::vector<std::pair<ProcessExit::Stage, std::function<void()>>> steps;
};

State& state() {
  static auto& instance = *new State;
  return instance;
}

std::atomic<bool> watched = false;
thread_local int passagesOfThisThread = 0;

void run(ProcessExit::Stage stage) {
  for (const auto& [its, step] : state().steps) {
    if (its == stage) step();
  }
}

void begin() {
  if (ProcessExit::isForkedChild()) return;
  auto& state = platform::state();
  std::unique_lock lock(state.mutex);
  if (state.begun.exchange(true)) return;
  lock.unlock();
  run(ProcessExit::Stage::transfers);
  lock.lock();
  // Work of the thread that exits, a callback that has called `exit`, will not go on.
  state.left.wait_for(lock, kMaxWait, [&] { return state.inside == passagesOfThisThread; });
  lock.unlock();
  run(ProcessExit::Stage::stores);
}

/// The objects of the thread that ends the process are destroyed before any static one.
class ThreadsEnd {
 public:
  ~ThreadsEnd() {
    if (watched) begin();
  }
  void watch() noexcept { isWatching_ = true; }

 private:
  [[maybe_unused]] bool isWatching_ = false;
};

thread_local ThreadsEnd threadsEnd;

// Static objects are made by the thread that calls `main`, unless another one loads the library as
// part of a plug-in: the end of that thread is not the end of the process.
[[maybe_unused]] const bool kMainThreadIsWatched =
    gettid() == getpid() && (threadsEnd.watch(), true);

}  // namespace

bool ProcessExit::add(Stage stage, std::function<void()> step) {
  auto& state = platform::state();
  {
    const std::lock_guard lock(state.mutex);
    if (state.begun) return false;
    state.steps.emplace_back(stage, std::move(step));
  }
  watch();
  return true;
}

void ProcessExit::watch() {
  state();
  watched = true;
  std::atexit(begin);
}

void ProcessExit::watchThisThread() { threadsEnd.watch(); }

bool ProcessExit::hasBegun() noexcept { return state().begun; }

bool ProcessExit::isForkedChild() noexcept { return state().process != getpid(); }

Error ProcessExit::error() { return {Error::kPosix, ECANCELED, "The process is exiting"}; }

ProcessExit::Passage::Passage() {
  auto& state = platform::state();
  const std::lock_guard lock(state.mutex);
  entered_ = !state.begun;
  if (!entered_) return;
  ++state.inside;
  ++passagesOfThisThread;
}

ProcessExit::Passage::~Passage() {
  if (!entered_) return;
  auto& state = platform::state();
  const std::lock_guard lock(state.mutex);
  --state.inside;
  --passagesOfThisThread;
  if (state.begun) state.left.notify_all();
}

}  // namespace orvane::platform
