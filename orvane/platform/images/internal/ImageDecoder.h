#pragma once

#include <orvane/platform/images/internal/ImageMessage.h>

#include <expected>

namespace orvane::platform {

/// Starts libvips and loads the decoders of the five formats; all others are closed for good.
[[nodiscard]] bool startDecoders();

/// Decodes the file open at `file` into what the request asks for.
[[nodiscard]] std::expected<RgbImage, ImageProblem> decodeImage(int file,
                                                                const ImageRequest& request);

}  // namespace orvane::platform
