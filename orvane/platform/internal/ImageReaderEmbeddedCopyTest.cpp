#include <gtest/gtest.h>
#include <libheif/heif.h>
#include <orvane/platform/internal/ImageReader.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "support/TemporaryDirectory.h"

namespace orvane::platform {
namespace {

using HeifImage = std::unique_ptr<heif_image, decltype(&heif_image_release)>;

HeifImage greyHeif(int side, int light) {
  heif_image* image = nullptr;
  heif_image_create(side, side, heif_colorspace_monochrome, heif_chroma_monochrome, &image);
  heif_image_add_plane(image, heif_channel_Y, side, side, 8);
  int stride = 0;
  auto* pixels = heif_image_get_plane(image, heif_channel_Y, &stride);
  std::fill_n(pixels, std::ptrdiff_t{stride} * side, static_cast<std::uint8_t>(light));
  return {image, heif_image_release};
}

/// A white picture with a black copy embedded.
bool saveWithEmbedded(const std::filesystem::path& file, int side, int embeddedSide) {
  const std::unique_ptr<heif_context, decltype(&heif_context_free)> context(heif_context_alloc(),
                                                                            heif_context_free);
  heif_encoder* encoder = nullptr;
  if (heif_context_get_encoder_for_format(context.get(), heif_compression_HEVC, &encoder).code != 0)
    return false;
  heif_image_handle* picture = nullptr;
  heif_image_handle* embedded = nullptr;
  heif_context_encode_image(context.get(), greyHeif(side, 255).get(), encoder, nullptr, &picture);
  // It is made of any image, reduced to the size wanted.
  heif_context_encode_thumbnail(context.get(), greyHeif(2 * embeddedSide, 0).get(), picture,
                                encoder, nullptr, embeddedSide, &embedded);
  heif_encoder_release(encoder);
  heif_image_handle_release(picture);
  if (embedded != nullptr) heif_image_handle_release(embedded);
  return heif_context_write_to_file(context.get(), file.c_str()).code == 0;
}

TEST(ImageReader, AnEmbeddedCopyServesUnlessItIsLarger) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "how HEIF's encoder hands its work to other threads looks like races";
#endif
  const struct {
    int side, embedded, light;
  } cases[] = {{1024, 256, 0}, {1024, 128, 255}, {64, 2048, 255}};
  for (const auto& [side, embedded, light] : cases) {
    SCOPED_TRACE(embedded);
    const auto file = testing::testDirectory() / "a.heic";
    if (!saveWithEmbedded(file, side, embedded)) GTEST_SKIP() << "no HEIF encoder";
    const auto image = readImage(file, 192, 192, ImageFit::inside);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, std::min(side, 192));
    EXPECT_NEAR(image->pixels[0], light, 3);
  }
}

}  // namespace
}  // namespace orvane::platform
