#pragma once

#include <orvane/Error.h>

#include <cstdint>
#include <functional>

namespace orvane {

// Callbacks run on threads that all uploads share. They may block briefly, and may make the
// engine's blocking calls, but must not wait for another callback: with every thread waiting, none
// is left to run it. They must not throw.

/// Bytes sent so far and bytes in all.
using UploadProgress = std::function<void(std::int64_t bytesSent, std::int64_t totalBytes)>;

/// The outcome of an upload. An upload needs one that is not empty.
using UploadCompletion = std::function<void(Result<void> result)>;

}  // namespace orvane
