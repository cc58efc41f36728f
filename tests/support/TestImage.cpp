#include "support/TestImage.h"

#include <vips/vips.h>

#include <cstdint>
#include <memory>
#include <stdexcept>

namespace orvane::testing {

std::filesystem::path photoFolder() { return ORVANE_PHOTOS; }

void writeImage(const std::filesystem::path& file, const platform::RgbImage& image) {
  vips_init("test");
  const std::unique_ptr<VipsImage, decltype(&g_object_unref)> picture(
      vips_image_new_from_memory(image.pixels.data(), image.pixels.size(), image.width,
                                 image.height, 3, VIPS_FORMAT_UCHAR),
      g_object_unref);
  if (vips_image_write_to_file(picture.get(), file.c_str(), nullptr) != 0) {
    throw std::runtime_error(vips_error_buffer());
  }
}

void writeImage(const std::filesystem::path& file, int width, int height,
                std::array<double, 3> colour) {
  platform::RgbImage image{.width = width, .height = height, .pixels = {}};
  for (int pixel = 0; pixel < width * height; ++pixel) {
    for (const double value : colour) image.pixels.push_back(static_cast<std::uint8_t>(value));
  }
  writeImage(file, image);
}

}  // namespace orvane::testing
