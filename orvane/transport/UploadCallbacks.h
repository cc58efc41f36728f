#pragma once

#include <orvane/Error.h>

#include <cstdint>
#include <functional>

namespace orvane {

// Callbacks run on threads that all uploads share. They may block briefly, and may make the
// engine's blocking calls, but must not wait for another callback: with every thread waiting, none
// is left to run it. They must not throw.
//
// Where a callback is promised "exactly once", that ends with the process: once `main` has returned
// or `exit` has been called, no callback begins, and uploads under way are left where they are.
// The exit waits for callbacks that are running, ten seconds at most, before static objects are
// destroyed; the engine's blocking calls meanwhile fail with the code cancelled (-999), in
// callbacks and in other threads. (Where neither the thread of `main` nor a callback calls `exit`,
// this holds for static objects made before the engine was first used.) Variables of `main` are
// gone by then: uploads whose callbacks use them must have completed before it returns. Requests
// that begin later fail with the code cancelled; their callbacks are not called.

/// Bytes sent so far and bytes in all.
using UploadProgress = std::function<void(std::int64_t bytesSent, std::int64_t totalBytes)>;

/// The outcome of an upload.
using UploadCompletion = std::function<void(Result<void> result)>;

}  // namespace orvane
