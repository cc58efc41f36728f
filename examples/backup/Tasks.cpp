#include "Tasks.h"

#include "Commands.h"

#include <boost/asio/co_spawn.hpp>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <exception>

namespace backup {
namespace {

constexpr std::chrono::milliseconds kBetweenTicks(100);

std::atomic<bool> stop = false;
static_assert(std::atomic<bool>::is_always_lock_free);  // What a signal handler may touch.

extern "C" void handleStopSignal(int) {
  if (stop.exchange(true)) _exit(kInterrupted);
}

}  // namespace

boost::asio::io_context& mainLoop() {
  static auto& loop = *new boost::asio::io_context;
  return loop;
}

void runTasks(std::size_t count, const std::function<Task()>& makeTask,
              const std::function<void()>& tick) {
  mainLoop().restart();
  for (std::size_t i = 0; i < count; ++i) {
    boost::asio::co_spawn(mainLoop(), makeTask(), [](const std::exception_ptr& failure) {
      if (failure) std::rethrow_exception(failure);
    });
  }
  while (!mainLoop().stopped()) {
    mainLoop().run_for(kBetweenTicks);
    tick();
  }
}

void listenForStop() {
  std::signal(SIGINT, handleStopSignal);
  std::signal(SIGTERM, handleStopSignal);
}

bool stopRequested() { return stop; }

}  // namespace backup
