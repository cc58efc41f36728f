#include <orvane/platform/FileReader.h>
#include <orvane/platform/PosixError.h>
#include <orvane/platform/internal/AreaAverage.h>
#include <orvane/platform/internal/ExitGate.h>
#include <orvane/platform/internal/ImageFile.h>
#include <orvane/platform/internal/ImageReader.h>
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
    ExitGate::closeAtExit();
    const ExitGate::Passage passage;
    g_log_set_handler(
        "VIPS", G_LOG_LEVEL_WARNING, [](const char*, GLogLevelFlags, const char*, gpointer) {},
        nullptr);
    if (vips_init(program_invocation_short_name) != 0) return false;
    vips_cache_set_max(0);
    ExitGate::closeAtExit();
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
    if (vips_region_prepare(region.get(), &strip) != 0) return false;
    ExitGate::Passage::pause();
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

/// What the samples of an image mean.
struct Colours {
  VipsInterpretation interpretation;
  VipsBandFormat format;
  int bands;        ///< All of them.
  int colourBands;  ///< Those at the front that are converted.
  float opaque;     ///< What the last band holds where nothing shines through; 0 without one.
};

Colours coloursOf(VipsImage* image) {
  Colours colours{.interpretation = vips_image_guess_interpretation(image),
                  .format = image->BandFmt,
                  .bands = image->Bands,
                  .colourBands = 1,
                  .opaque = 0};
  const bool isCmyk = colours.interpretation == VIPS_INTERPRETATION_CMYK;
  if (vips_image_hasalpha(image)) {
    colours.opaque = 255;
    if (colours.format == VIPS_FORMAT_USHORT) colours.opaque = 65535;
    if (colours.interpretation == VIPS_INTERPRETATION_scRGB) colours.opaque = 1;
  }
  const int available = colours.bands - (colours.opaque > 0 ? 1 : 0);
  if (available >= 3) colours.colourBands = isCmyk ? 4 : 3;
  return colours;
}

/// The image in samples that `reduced` takes, its colours weighted by their opacity.
Image prepared(const Image& image, const Colours& colours) {
  if (colours.opaque > 0) {
    return operate(operate(image, vips_premultiply, "max_alpha", double{colours.opaque}), vips_cast,
                   VIPS_FORMAT_FLOAT);
  }
  const bool asItIs = colours.format == VIPS_FORMAT_UCHAR || colours.format == VIPS_FORMAT_USHORT;
  return operate(image, vips_cast, asItIs ? colours.format : VIPS_FORMAT_FLOAT);
}

struct Separated {
  std::vector<float> colours;
  std::vector<float> opacity;  ///< 0 to 1, one for each pixel; empty when all is opaque.
};

Separated separated(const std::vector<float>& samples, const Colours& colours) {
  Separated result;
  const auto bands = static_cast<std::size_t>(colours.bands);
  for (std::size_t pixel = 0; pixel < samples.size(); pixel += bands) {
    float opacity = 1;
    if (colours.opaque > 0) {
      opacity = std::clamp(samples[pixel + bands - 1] / colours.opaque, 0.0F, 1.0F);
      result.opacity.push_back(opacity);
    }
    for (int band = 0; band < colours.colourBands; ++band) {
      const float weighted = samples[pixel + static_cast<std::size_t>(band)];
      result.colours.push_back(opacity > 0 ? weighted / opacity : 0);
    }
  }
  return result;
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

/// The pixels of `samples`, which are of the meaning that `colours` says and belong to `original`.
std::optional<RgbImage> converted(const std::vector<float>& samples, AreaAverage::Size size,
                                  const Colours& colours, VipsImage* original) {
  const auto [values, opacity] = separated(samples, colours);
  Image image(vips_image_new_from_memory_copy(values.data(), values.size() * sizeof(float),
                                              size.width, size.height, colours.colourBands,
                                              VIPS_FORMAT_FLOAT));
  if (colours.format != VIPS_FORMAT_FLOAT) image = operate(image, vips_rint);
  image = operate(image, vips_cast, colours.format);
  image = operate(image, vips_copy, "interpretation", colours.interpretation);
  if (!image) return std::nullopt;
  image = operate(inSrgb(image, original), vips_cast, VIPS_FORMAT_UCHAR);
  if (!image || image->Bands != 3) return std::nullopt;
  const VipsHandle<VipsRegion> region(vips_region_new(image.get()));
  std::size_t length = 0;
  const std::unique_ptr<VipsPel, decltype(&g_free)> pixels(
      vips_region_fetch(region.get(), 0, 0, size.width, size.height, &length), g_free);
  if (!pixels) return std::nullopt;
  RgbImage result{size.width, size.height, {pixels.get(), pixels.get() + length}};
  for (std::size_t i = 0; i < length && !opacity.empty(); ++i) {
    const float share = opacity[i / 3];
    const float blended = static_cast<float>(result.pixels[i]) * share + 255 * (1 - share);
    result.pixels[i] = static_cast<std::uint8_t>(std::lround(blended));
  }
  return result;
}

// -- Orientation

bool isSideways(int orientation) { return orientation >= 5; }

/// Turns the image as its EXIF orientation (1 to 8) says.
RgbImage upright(RgbImage image, int orientation) {
  if (orientation <= 1 || orientation > 8) return image;
  const bool sideways = isSideways(orientation);
  const bool fromRight = orientation == 2 || orientation == 3 || orientation >= 7;
  const bool fromBottom =
      orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  RgbImage result{.width = image.width, .height = image.height, .pixels = {}};
  if (sideways) std::swap(result.width, result.height);
  result.pixels.reserve(image.pixels.size());
  for (int y = 0; y < result.height; ++y) {
    for (int x = 0; x < result.width; ++x) {
      const int across = sideways ? y : x;
      const int down = sideways ? x : y;
      const int column = fromRight ? image.width - 1 - across : across;
      const int row = fromBottom ? image.height - 1 - down : down;
      const auto pixel = std::ptrdiff_t{row} * image.width + column;
      const auto begin = image.pixels.begin() + pixel * 3;
      result.pixels.insert(result.pixels.end(), begin, begin + 3);
    }
  }
  return result;
}

Result<RgbImage> decode(ImageFile& file, Box box) {
  const auto format = file.format();
  if (!format) return failure(ImageProblem::notAnImage);
  auto image = file.load(*format, 1);
  if (!image) return failure(ImageProblem::damaged);
  const int orientation = vips_image_get_orientation(image.get());
  if (isSideways(orientation)) std::swap(box.width, box.height);

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
  const auto colours = coloursOf(image.get());
  const auto samples = reduced(prepared(image, colours), layout);
  if (samples.empty()) return failure(ImageProblem::damaged);
  auto pixels = converted(samples, layout.size, colours, image.get());
  if (!pixels) return failure(ImageProblem::damaged);
  return upright(std::move(*pixels), orientation);
}

}  // namespace

Result<RgbImage> readImage(const std::filesystem::path& file, int width, int height, ImageFit fit) {
  if (std::min(width, height) < 1 || std::max(width, height) > kMaximumBoxSide) {
    return std::unexpected(posixError(EINVAL, "decode"));
  }
  auto reader = FileReader::open(file);
  if (!reader) return std::unexpected(reader.error());
  if (!startVips()) return failure(ImageProblem::notAnImage);
  const ExitGate::Passage passage;
  ImageFile input(std::move(*reader));
  auto result = decode(input, {width, height, fit});
  if (!result && input.readFailure()) return std::unexpected(*input.readFailure());
  return result;
}

}  // namespace orvane::platform
