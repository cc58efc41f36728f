#pragma once

#include <orvane/Error.h>

#include <cstdint>
#include <functional>

namespace orvane {

// Callbacks run on threads that all uploads share. They may block briefly, and may make the
// engine's blocking calls, but must not wait for another callback: with every thread waiting, none
// is left to run it. They must not throw.
//
// Those threads block every signal but SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP and SIGSYS, and so
// do all others that the engine or its libraries start: handlers of the host run on the host's own
// threads, but for handlers of faults, which run where the fault was. A program that a callback
// starts inherits the mask, and would not heed SIGTERM: start it with a mask of its own
// (POSIX_SPAWN_SETSIGMASK, or `pthread_sigmask` between fork and exec), or from a thread of the
// host.
//
// Where no thread can be started to run callbacks, `completion` is called at once on the calling
// thread, with the POSIX error EAGAIN. Where a request finds no descriptor left, it gets the POSIX
// error EMFILE. Both may pass.
//
// Processes share nothing. A child that was forked without exec must start no upload, listing or
// other request, and no callback runs in it.
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

/// The outcome of an upload. An upload needs one that is not empty.
using UploadCompletion = std::function<void(Result<void> result)>;

}  // namespace orvane
