#pragma once

#include <array>
#include <filesystem>

namespace orvane::testing {

/// Writes an image of one colour (red, green, blue; 0 to 255); the name's end says the format.
void writeImage(const std::filesystem::path& file, int width, int height,
                std::array<double, 3> colour);

}  // namespace orvane::testing
