#pragma once

#include <orvane/platform/images/ImageReader.h>

#include <array>
#include <filesystem>

namespace orvane::testing {

/// Photographs with the labels that they deserve; its `README.md` says where they come from.
std::filesystem::path photoFolder();

/// Writes an image; the name's end says the format. Throws when it cannot be written.
void writeImage(const std::filesystem::path& file, const platform::RgbImage& image);

/// Writes an image of one colour (red, green, blue; 0 to 255).
void writeImage(const std::filesystem::path& file, int width, int height,
                std::array<double, 3> colour);

}  // namespace orvane::testing
