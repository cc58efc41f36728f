#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>

#include <cstddef>
#include <functional>

namespace backup {

/// A coroutine of this program: it runs on the main thread and gives it up while it waits.
using Task = boost::asio::awaitable<void>;

/// Where tasks run. Never destroyed: a thread of the engine may still be busy handing something
/// over when the last task is done with it.
[[nodiscard]] boost::asio::io_context& mainLoop();

/// Runs so many tasks on this thread until all are done, and `tick` ten times a second meanwhile
/// and once at the end. What any of them throws comes out here.
void runTasks(
    std::size_t count, const std::function<Task()>& makeTask,
    const std::function<void()>& tick = [] {});

/// From now on the first SIGINT or SIGTERM asks to stop; the second one ends the process.
void listenForStop();

/// Whether the user wants what is under way to be finished and nothing more to begin.
[[nodiscard]] bool stopRequested();

}  // namespace backup
