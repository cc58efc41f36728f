#include <orvane/platform/FileReader.h>
#include <orvane/platform/PosixError.h>
#include <orvane/platform/internal/AreaAverage.h>
#include <orvane/platform/internal/BlockedSignals.h>
#include <orvane/platform/internal/ImageFile.h>
#include <orvane/platform/internal/ImageReader.h>
#include <orvane/platform/internal/ProcessExit.h>
#include <orvane/platform/internal/VipsHandle.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace orvane::platform {
namespace {

using Image = VipsHandle<VipsImage>;
using Format = ImageFile::Format;

constexpr int kMaximumBoxSide = 2048;
constexpr int kMaximumSide = 65'535;
constexpr double kMaximumPixels = 500e6;
constexpr double kMaximumBytesHeld = 512.0 * 1024 * 1024;

struct Box {
  int width;
  int height;
  ImageFit fit;
};

std::unexpected<Error> failure(ImageProblem problem) {
  // libvips keeps one text for all threads: what it holds may be about another image.
  vips_error_clear();
  const char* sentence = "The file is not an image of a known format";
  if (problem == ImageProblem::damaged) sentence = "The image is damaged and cannot be decoded";
  if (problem == ImageProblem::tooLarge) sentence = "The image is too large to be decoded";
  return std::unexpected(Error(kImageErrorDomain, static_cast<int>(problem), sentence));
}

bool startVips() {
  static const bool started = [] {
    g_log_set_handler(
        "VIPS", G_LOG_LEVEL_WARNING, [](const char*, GLogLevelFlags, const char*, gpointer) {},
        nullptr);
    if (vips_init(program_invocation_short_name) != 0) return false;
    vips_cache_set_max(0);
    ProcessExit::watch();
    return true;
  }();
  return started;
}

// -- Limits

std::size_t bytesPerPixel(const VipsImage& image) {
  return static_cast<std::size_t>(image.Bands) *
         static_cast<std::size_t>(vips_format_sizeof(image.BandFmt));
}

bool isSet(VipsImage* image, const char* field) {
  int value = 0;
  return vips_image_get_typeof(image, field) != 0 &&
         vips_image_get_int(image, field, &value) == 0 && value != 0;
}

/// The coefficients of all scans are kept, two bytes each; most files have less for the colours.
double progressiveJpegBytes(VipsImage* image) {
  const char* subsampling = nullptr;
  vips_image_get_string(image, "jpeg-chroma-subsample", &subsampling);
  const bool subsampled = subsampling != nullptr && std::string_view(subsampling) == "4:2:0";
  return subsampled ? image->Bands * 4.0 / 3 : image->Bands * 2.0;
}

/// How much of a decoder's memory grows with the whole image, in bytes for each pixel.
double bytesHeldPerPixel(VipsImage* image, Format format) {
  const auto size = static_cast<double>(bytesPerPixel(*image));
  switch (format) {
    case Format::jpeg:
      return isSet(image, "jpeg-multiscan") ? progressiveJpegBytes(image) : 0;
    case Format::png:
      return isSet(image, "interlaced") ? size : 0;
    case Format::webp:
      return 4;
    case Format::tiff:
      return size;  // A strip or a tile may be as large as the image.
    case Format::heif:
      return size + 3;  // The image as it is coded, and as pixels.
  }
  return size;
}

bool isTooLarge(VipsImage* image, Format format) {
  constexpr int kRowsKept = 528;  // What libvips keeps of the rows that have passed.
  const double width = image->Xsize;
  const double pixels = width * image->Ysize;
  const double rows = width * std::min(image->Ysize, kRowsKept);
  const double held =
      pixels * bytesHeldPerPixel(image, format) + rows * static_cast<double>(bytesPerPixel(*image));
  // Of an image that is wider still, the rows that are under way take more than all the rest.
  return std::max(image->Xsize, image->Ysize) > kMaximumSide || pixels > kMaximumPixels ||
         held > kMaximumBytesHeld;
}

// -- Layout

/// How many times the image can be reduced before it has fewer pixels than the box asks for, or
/// none.
double reductionFor(const VipsImage& image, const Box& box) {
  const double across = static_cast<double>(image.Xsize) / box.width;
  const double down = static_cast<double>(image.Ysize) / box.height;
  const bool inside = box.fit == ImageFit::inside;
  const double wanted = inside ? std::max(across, down) : std::min(across, down);
  return std::clamp(wanted, 1.0, static_cast<double>(std::min(image.Xsize, image.Ysize)));
}

/// Which part of the image is wanted, and the size it gets.
struct Layout {
  VipsRect part;
  AreaAverage::Size size;
};

int scaled(int side, double factor) {
  return std::max(1, static_cast<int>(std::lround(side * factor)));
}

Layout layoutOf(const VipsImage& image, const Box& box) {
  Layout layout{{0, 0, image.Xsize, image.Ysize}, {box.width, box.height}};
  const double across = static_cast<double>(image.Xsize) / box.width;
  const double down = static_cast<double>(image.Ysize) / box.height;
  if (box.fit == ImageFit::inside) {
    const double factor = std::min(1.0, 1 / std::max(across, down));
    layout.size = {scaled(image.Xsize, factor), scaled(image.Ysize, factor)};
  } else if (box.fit == ImageFit::cover) {
    layout.part.width = std::min(image.Xsize, scaled(box.width, down));
    layout.part.height = std::min(image.Ysize, scaled(box.height, across));
    layout.part.left = (image.Xsize - layout.part.width) / 2;
    layout.part.top = (image.Ysize - layout.part.height) / 2;
  }
  return layout;
}

// -- Size. The decoded rows pass by a few at a time and on this thread: libvips' own reduction
// -- holds far more of a wide image, and ends the process for very flat ones.

template <class Sample>
bool addRows(VipsImage* image, const VipsRect& part, AreaAverage& average) {
  constexpr std::size_t kStripBytes = 1 << 20;
  const VipsHandle<VipsRegion> region(vips_region_new(image));
  const auto rowBytes = static_cast<std::size_t>(part.width) * bytesPerPixel(*image);
  const auto height = static_cast<int>(std::clamp<std::size_t>(kStripBytes / rowBytes, 1, 16));
  const int bottom = part.top + part.height;
  for (int top = part.top; top < bottom; top += height) {
    const VipsRect strip{part.left, top, part.width, std::min(height, bottom - top)};
    if (ProcessExit::hasBegun() || vips_region_prepare(region.get(), &strip) != 0) return false;
    const VipsRect& valid = region->valid;
    const auto left = static_cast<std::size_t>(part.left - valid.left) * bytesPerPixel(*image);
    for (int row = top; row < top + strip.height; ++row) {
      const auto* bytes = region->data + std::ptrdiff_t{row - valid.top} * region->bpl + left;
      average.add(std::span(reinterpret_cast<const Sample*>(bytes), rowBytes / sizeof(Sample)));
    }
  }
  return true;
}

/// The samples of the wanted part at its new size; none when the image turns out to be damaged.
std::vector<float> reduced(const Image& image, const Layout& layout) {
  if (!image) return {};
  AreaAverage average({layout.part.width, layout.part.height}, layout.size, image->Bands);
  bool complete = false;
  if (image->BandFmt == VIPS_FORMAT_UCHAR) {
    complete = addRows<std::uint8_t>(image.get(), layout.part, average);
  } else if (image->BandFmt == VIPS_FORMAT_USHORT) {
    complete = addRows<std::uint16_t>(image.get(), layout.part, average);
  } else {
    complete = addRows<float>(image.get(), layout.part, average);
  }
  return complete ? std::move(average).take() : std::vector<float>();
}

// -- Colours

/// What the last band holds where nothing shines through; 0 without such a band.
double opaqueValue(VipsImage* image) {
  if (!vips_image_hasalpha(image)) return 0;
  if (vips_image_guess_interpretation(image) == VIPS_INTERPRETATION_scRGB) return 1;
  return image->BandFmt == VIPS_FORMAT_USHORT ? 65535 : 255;
}

/// The image in samples that `reduced` takes, its colours weighted by their opacity.
Image prepared(const Image& image) {
  if (const double opaque = opaqueValue(image.get()); opaque > 0) {
    return operate(operate(image, vips_premultiply, "max_alpha", opaque), vips_cast,
                   VIPS_FORMAT_FLOAT);
  }
  const auto format = image->BandFmt;
  const bool asItIs = format == VIPS_FORMAT_UCHAR || format == VIPS_FORMAT_USHORT;
  return operate(image, vips_cast, asItIs ? format : VIPS_FORMAT_FLOAT);
}

Image inSrgb(const Image& image, VipsImage* original) {
  const void* profile = nullptr;
  std::size_t length = 0;
  if (vips_image_get_typeof(original, VIPS_META_ICC_NAME) != 0 &&
      vips_image_get_blob(original, VIPS_META_ICC_NAME, &profile, &length) == 0) {
    vips_image_set_blob_copy(image.get(), VIPS_META_ICC_NAME, profile, length);
    auto converted = operate(image, vips_icc_transform, "srgb", "embedded", TRUE);
    if (converted) return converted;
    vips_error_clear();  // A profile that is of no use does not make the image useless.
  }
  return operate(image, vips_colourspace, VIPS_INTERPRETATION_sRGB);
}

/// Red, green and blue on white; further bands say nothing that can be seen. White is what is added
/// to black: any other background would have libvips start threads.
Image onWhite(const Image& image) {
  if (!image) return nullptr;
  Image opaque = operate(image, vips_copy);
  if (vips_image_hasalpha(image.get())) {
    const auto black = operate(image, vips_flatten);
    const auto opacity = operate(image, vips_extract_band, image->Bands - 1);
    const auto missing = operate(opacity, vips_linear1, -1.0, 255.0);
    if (!black || !missing) return nullptr;
    VipsImage* sum = nullptr;
    vips_add(black.get(), missing.get(), &sum, nullptr);
    opaque.reset(sum);
  }
  return operate(opaque, vips_extract_band, 0, "n", 3);
}

/// The reduced `samples` of `original` as the colours that they mean, seen the right way up.
Image finished(const std::vector<float>& samples, AreaAverage::Size size, VipsImage* original,
               int orientation) {
  Image image(vips_image_new_from_memory_copy(samples.data(), samples.size() * sizeof(float),
                                              size.width, size.height, original->Bands,
                                              VIPS_FORMAT_FLOAT));
  if (const double opaque = opaqueValue(original); opaque > 0) {
    image = operate(image, vips_unpremultiply, "max_alpha", opaque);
  }
  if (original->BandFmt != VIPS_FORMAT_FLOAT) image = operate(image, vips_rint);
  image = operate(image, vips_cast, original->BandFmt);
  image = operate(image, vips_copy, "interpretation", vips_image_guess_interpretation(original));
  if (!image) return nullptr;
  image = operate(onWhite(inSrgb(image, original)), vips_cast, VIPS_FORMAT_UCHAR);
  if (!image) return nullptr;
  vips_image_set_int(image.get(), VIPS_META_ORIENTATION, orientation);
  return operate(image, vips_autorot);
}

std::optional<RgbImage> pixelsOf(const Image& image) {
  if (!image) return std::nullopt;
  const VipsHandle<VipsRegion> region(vips_region_new(image.get()));
  std::size_t length = 0;
  const std::unique_ptr<VipsPel, decltype(&g_free)> pixels(
      vips_region_fetch(region.get(), 0, 0, image->Xsize, image->Ysize, &length), g_free);
  if (!pixels) return std::nullopt;
  return RgbImage{image->Xsize, image->Ysize, {pixels.get(), pixels.get() + length}};
}

Result<RgbImage> decode(ImageFile& file, Box box) {
  const auto format = file.format();
  if (!format) return failure(ImageProblem::notAnImage);
  auto image = file.load(*format, 1);
  if (!image) return failure(ImageProblem::damaged);
  const int orientation = vips_image_get_orientation(image.get());
  if (orientation >= 5) std::swap(box.width, box.height);

  const double reduction = reductionFor(*image, box);
  Image embedded;
  if (*format == Format::heif) embedded = file.loadEmbedded(*image, reduction);
  const bool isWhole = embedded == nullptr;
  if (!isWhole) image = std::move(embedded);
  if (isTooLarge(image.get(), *format)) return failure(ImageProblem::tooLarge);
  if (isWhole && reduction > 1) image = file.load(*format, reduction);
  if (image && image->Coding != VIPS_CODING_NONE) {
    image = operate(image, vips_colourspace, VIPS_INTERPRETATION_sRGB);
  }
  if (!image) return failure(ImageProblem::damaged);

  const auto layout = layoutOf(*image, box);
  const auto samples = reduced(prepared(image), layout);
  if (samples.empty()) return failure(ImageProblem::damaged);
  auto pixels = pixelsOf(finished(samples, layout.size, image.get(), orientation));
  if (!pixels) return failure(ImageProblem::damaged);
  return std::move(*pixels);
}

}  // namespace

Result<RgbImage> readImage(const std::filesystem::path& file, int width, int height, ImageFit fit) {
  if (std::min(width, height) < 1 || std::max(width, height) > kMaximumBoxSide) {
    return std::unexpected(posixError(EINVAL, "decode"));
  }
  auto reader = FileReader::open(file);
  if (!reader) return std::unexpected(reader.error());
  const ProcessExit::Passage passage;
  if (!passage) return std::unexpected(ProcessExit::error());
  const BlockedSignals blocked;  // Some decoders start threads.
  if (!startVips()) return failure(ImageProblem::notAnImage);
  ImageFile input(std::move(*reader));
  auto result = decode(input, {width, height, fit});
  if (!result && input.readFailure()) return std::unexpected(*input.readFailure());
  if (!result && ProcessExit::hasBegun()) return std::unexpected(ProcessExit::error());
  return result;
}

}  // namespace orvane::platform
