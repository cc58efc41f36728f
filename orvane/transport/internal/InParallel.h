#pragma once

#include <orvane/Async.h>

#include <cstddef>
#include <functional>

namespace orvane::transport {

/// Runs `count` coroutines, each made by `makeWorker`, side by side on the caller's executor, and
/// waits for all of them. When one fails the others are cancelled, and its error is the outcome.
[[nodiscard]] Async<void> inParallel(std::size_t count, std::function<Async<void>()> makeWorker);

}  // namespace orvane::transport
