#pragma once

#include <orvane/Error.h>

#include <cstdint>
#include <functional>

namespace orvane {

/// Bytes sent so far and bytes in all. Must not throw.
using UploadProgress = std::function<void(std::int64_t bytesSent, std::int64_t totalBytes)>;

/// The outcome of an upload. Must not throw.
using UploadCompletion = std::function<void(Result<void> result)>;

}  // namespace orvane
