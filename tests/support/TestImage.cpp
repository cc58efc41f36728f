#include "support/TestImage.h"

#include <vips/vips.h>

#include <memory>
#include <stdexcept>

namespace orvane::testing {

void writeImage(const std::filesystem::path& file, int width, int height,
                std::array<double, 3> colour) {
  using Image = std::unique_ptr<VipsImage, decltype(&g_object_unref)>;
  constexpr std::array<double, 3> kOnes{1, 1, 1};
  vips_init("test");
  VipsImage* black = nullptr;
  VipsImage* coloured = nullptr;
  vips_black(&black, width, height, "bands", 3, nullptr);
  const Image source(black, g_object_unref);
  vips_linear(black, &coloured, kOnes.data(), colour.data(), 3, "uchar", TRUE, nullptr);
  const Image image(coloured, g_object_unref);
  if (vips_image_write_to_file(coloured, file.c_str(), nullptr) != 0) {
    throw std::runtime_error(vips_error_buffer());
  }
}

}  // namespace orvane::testing
