#include <orvane/platform/images/internal/ImageDecoder.h>

#include <orvane/platform/images/internal/VipsHandle.h>

#include <boost/endian/conversion.hpp>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvane::platform {
namespace {

using Image = VipsHandle<VipsImage>;

constexpr int kMaximumSide = 65'535;
constexpr double kMaximumPixels = 500e6;
constexpr int kMaximumProportion = 100;

constexpr std::array<const char*, 5> kLoaders{"VipsForeignLoadJpeg", "VipsForeignLoadPng",
                                              "VipsForeignLoadWebp", "VipsForeignLoadTiff",
                                              "VipsForeignLoadHeif"};

struct Size {
  int width;
  int height;
};

/// Says so first: the host may not be told how its children end.
[[noreturn]] void endForLackOfMemory() {
  const ImageReply reply{0, 0, ImageProblem::tooMuchMemory};
  send(kWorkerSocket, &reply, sizeof reply, MSG_NOSIGNAL);
  _exit(EXIT_FAILURE);
}

/// Up to eight bytes of the file.
std::string bytesAt(int file, off_t offset) {
  std::string bytes(8, '\0');
  return pread(file, bytes.data(), bytes.size(), offset) == ssize_t{8} ? bytes : std::string();
}

/// Whether an image that cannot be decoded goes on behind the end of its file. Decoders of JPEG and
/// HEIF say so. A WebP file gives its length, a PNG file ends in a mark, and a TIFF file has its
/// directory, without which no loader knows it, mostly at its end.
bool isCutOff(int file, std::string_view words, bool isKnown) {
  if (words.find("nd of") != std::string_view::npos) return true;
  const off_t size = lseek(file, 0, SEEK_END);
  const auto start = bytesAt(file, 0);
  if (start.starts_with("RIFF")) {
    std::uint32_t length = 0;
    std::memcpy(&length, &start[4], sizeof length);
    return size < off_t{boost::endian::little_to_native(length)} + 8;
  }
  if (start.starts_with("\x89PNG")) return bytesAt(file, size - 8) != "IEND\xAE\x42\x60\x82";
  return !isKnown && (start.starts_with("II*") || start.starts_with("MM"));
}

/// Why the image cannot be decoded, after what libvips and the decoders have said since the last
/// one.
ImageProblem problemOf(int file, ImageProblem otherwise) {
  const std::string_view words = vips_error_buffer();
  auto problem = otherwise;
  if (words.find("emory") != std::string_view::npos) problem = ImageProblem::tooMuchMemory;
  if (isCutOff(file, words, otherwise != ImageProblem::notAnImage)) problem = ImageProblem::cutOff;
  vips_error_clear();
  return problem;
}

/// Of the size that one sees: the image may lie on its side.
Size uprightSize(VipsImage* image) {
  Size size{image->Xsize, image->Ysize};
  if (vips_image_get_orientation_swap(image)) std::swap(size.width, size.height);
  return size;
}

ImageProblem problemWith(Size size) {
  const auto [shorter, longer] = std::minmax(size.width, size.height);
  if (longer > kMaximumSide) return ImageProblem::tooLong;
  if (1.0 * shorter * longer > kMaximumPixels) return ImageProblem::tooManyPixels;
  // libvips ends the process when it reduces images that are very flat.
  return longer > kMaximumProportion * shorter ? ImageProblem::tooNarrow : ImageProblem::none;
}

int scaled(int side, double factor) {
  return std::max(1, static_cast<int>(std::lround(side * factor)));
}

Size sizeWanted(Size image, const ImageRequest& request) {
  if (request.fit != ImageFit::inside) return {request.width, request.height};
  const double factor =
      std::min({1.0, 1.0 * request.width / image.width, 1.0 * request.height / image.height});
  return {scaled(image.width, factor), scaled(image.height, factor)};
}

/// Which of the five formats the file begins as, by the name of its loader; empty for others.
std::string_view formatOf(VipsSource* source) {
  const char* const found = vips_foreign_find_load_source(source);
  const std::string_view name = found == nullptr ? "" : found;
  for (const std::string_view loader : kLoaders) {
    if (name.starts_with(loader)) return loader;
  }
  return {};
}

/// The loader's options. A JPEG decoder is fastest at an eighth of the size; it gives no less than
/// `size` here.
std::string optionsFor(std::string_view format, Size whole, Size size) {
  if (format != "VipsForeignLoadJpeg") return "[fail_on=error]";
  int shrink = 8;
  while (shrink > 1 && (whole.width < shrink * size.width || whole.height < shrink * size.height)) {
    shrink /= 2;
  }
  return "[fail_on=error,shrink=" + std::to_string(shrink) + "]";
}

/// Decodes into exactly that size, upright. The thumbnail of a source would have WebP reduced by
/// its decoder, in a way of its own, and JPEG decoded larger than is needed.
Image thumbnail(VipsSource* source, std::string_view format, Size whole, Size size, ImageFit fit) {
  const bool isCover = fit == ImageFit::cover;
  const auto sizes = isCover ? VIPS_SIZE_BOTH : VIPS_SIZE_FORCE;
  const auto crop = isCover ? VIPS_INTERESTING_CENTRE : VIPS_INTERESTING_NONE;
  const auto options = optionsFor(format, whole, size);
  if (format != "VipsForeignLoadHeif") {
    const Image image(vips_image_new_from_source(source, options.c_str(), "access",
                                                 VIPS_ACCESS_SEQUENTIAL, nullptr));
    return operate(image, vips_thumbnail_image, size.width, "height", size.height, "size", sizes,
                   "crop", crop);
  }
  // It takes the small copy that a file may hold. Its own `fail_on` does not reach the loader in
  // libvips 8.14.
  VipsImage* image = nullptr;
  vips_thumbnail_source(source, &image, size.width, "height", size.height, "size", sizes, "crop",
                        crop, "option_string", options.c_str(), nullptr);
  return Image(image);
}

Image inSrgb(const Image& image) {
  if (!image) return nullptr;
  if (vips_image_get_typeof(image.get(), VIPS_META_ICC_NAME) != 0) {
    auto converted = operate(image, vips_icc_transform, "srgb", "embedded", TRUE);
    if (converted) return converted;
    vips_error_clear();  // A profile that is of no use does not make the image useless.
  }
  return operate(image, vips_colourspace, VIPS_INTERPRETATION_sRGB);
}

/// Red, green and blue; further bands say nothing that can be seen.
Image onWhite(Image image) {
  if (image && vips_image_hasalpha(image.get())) {
    constexpr double kWhite[] = {255, 255, 255};
    VipsArrayDouble* const white = vips_array_double_new(kWhite, 3);
    image = operate(image, vips_flatten, "background", white);
    vips_area_unref(VIPS_AREA(white));
  }
  return operate(operate(image, vips_extract_band, 0, "n", 3), vips_cast, VIPS_FORMAT_UCHAR);
}

std::optional<RgbImage> pixelsOf(const Image& image) {
  std::size_t length = 0;
  const std::unique_ptr<void, decltype(&g_free)> pixels(
      image ? vips_image_write_to_memory(image.get(), &length) : nullptr, g_free);
  if (!pixels) return std::nullopt;
  const auto* const bytes = static_cast<const std::uint8_t*>(pixels.get());
  return RgbImage{image->Xsize, image->Ysize, {bytes, bytes + length}};
}

/// They are files of their own, which are opened at the first look at such an image.
void loadHeifDecoders() {
  char start[] =
      "\0\0\0\x18"
      "ftypheic\0\0\0\0mif1heic";
  VipsImage* nothing = nullptr;
  vips_heifload_buffer(start, sizeof start - 1, &nothing, nullptr);
  vips_error_clear();
}

}  // namespace

bool startDecoders() {
  // Memory that cannot be had ends GLib and C++ alike; this says why.
  std::set_new_handler(endForLackOfMemory);
  g_log_set_default_handler(
      [](const char*, GLogLevelFlags level, const char*, gpointer) {
        if ((level & G_LOG_LEVEL_ERROR) != 0) endForLackOfMemory();
      },
      nullptr);
  if (vips_init("orvane-image-worker") != 0) return false;
  vips_concurrency_set(1);
  vips_cache_set_max(0);
  vips_operation_block_set("VipsForeignLoad", TRUE);
  for (const auto* loader : kLoaders) vips_operation_block_set(loader, FALSE);
  loadHeifDecoders();
  return true;
}

std::expected<RgbImage, ImageProblem> decodeImage(int file, const ImageRequest& request) {
  const auto failure = [file](ImageProblem otherwise) {
    return std::unexpected(problemOf(file, otherwise));
  };
  const VipsHandle<VipsSource> source(vips_source_new_from_descriptor(file));
  const auto format = source ? formatOf(source.get()) : std::string_view();
  if (format.empty()) return failure(ImageProblem::notAnImage);
  const Image header(
      vips_image_new_from_source(source.get(), "", "access", VIPS_ACCESS_SEQUENTIAL, nullptr));
  if (!header) return failure(ImageProblem::damaged);
  const auto whole = uprightSize(header.get());
  const auto problem = problemWith(whole);
  if (problem != ImageProblem::none) return std::unexpected(problem);

  const auto size = sizeWanted(whole, request);
  const bool isReduced = size.width < whole.width || size.height < whole.height;
  const int factor = isReduced ? 2 : 1;
  const Size twice{factor * size.width, factor * size.height};
  const auto large = thumbnail(source.get(), format, whole, twice, request.fit);
  auto image = pixelsOf(operate(onWhite(inSrgb(large)), vips_shrink, 1.0 * factor, 1.0 * factor));
  if (!image) return failure(ImageProblem::damaged);
  return std::move(*image);
}

}  // namespace orvane::platform
