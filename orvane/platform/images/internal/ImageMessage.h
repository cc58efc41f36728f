#pragma once

#include <orvane/platform/images/ImageReader.h>

#include <cstddef>
#include <cstdint>

namespace orvane::platform {

// What the library and its worker program say to each other over a socket. Both are of one build,
// so the messages are plain memory.

/// Goes with the descriptor of the image file, open for reading and at its beginning.
struct ImageRequest {
  std::int32_t width;
  std::int32_t height;
  ImageFit fit;
};

/// Is followed by `width` * `height` * 3 bytes of pixels, unless there is a problem. A first one
/// without a problem or pixels says that the worker is ready.
struct ImageReply {
  std::int32_t width;
  std::int32_t height;
  ImageProblem problem;  ///< `none` for an image.
};

/// The worker's end of the socket.
inline constexpr int kWorkerSocket = 0;

inline constexpr std::size_t kWorkerMemory = std::size_t{768} * 1024 * 1024;

}  // namespace orvane::platform
