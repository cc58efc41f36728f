#include <orvane/platform/FileReader.h>
#include <orvane/platform/PosixError.h>
#include <orvane/platform/internal/ImageReader.h>
#include <vips/vips.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace orvane::platform {
namespace {

constexpr int kMaximumSide = 8192;
constexpr double kMaximumPixels = 500e6;
constexpr double kMaximumBytesHeld = 512.0 * 1024 * 1024;

struct Unreference {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unreference>;
using Image = Owned<VipsImage>;
using Source = Owned<VipsSource>;

struct Box {
  int width;
  int height;
  ImageFit fit;
};

std::unexpected<Error> failure(ImageProblem problem) {
  // libvips keeps one text for all threads: what it holds may be another image's.
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
    return true;
  }();
  return started;
}

// -- The file, as libvips reads it. Not by its name, which may become another file between two
// -- looks, and not mapped into memory, where a file that gets shorter would end the process.

struct Input {
  FileReader file;
  std::uint64_t offset = 0;
  std::optional<Error> failure = {};
};

gint64 readInput(VipsSourceCustom*, void* buffer, gint64 length, gpointer data) {
  auto& input = *static_cast<Input*>(data);
  const auto count = input.file.readAt(
      input.offset, {static_cast<std::byte*>(buffer), static_cast<std::size_t>(length)});
  if (!count) {
    input.failure = count.error();
    return -1;
  }
  input.offset += *count;
  return static_cast<gint64>(*count);
}

gint64 seekInput(VipsSourceCustom*, gint64 offset, int whence, gpointer data) {
  auto& input = *static_cast<Input*>(data);
  if (whence == SEEK_CUR) offset += static_cast<gint64>(input.offset);
  if (whence == SEEK_END) offset += static_cast<gint64>(input.file.sizeAtOpen());
  if (offset < 0) return -1;
  input.offset = static_cast<std::uint64_t>(offset);
  return offset;
}

Source sourceOf(Input& input) {
  auto* source = vips_source_custom_new();
  g_signal_connect(source, "read", G_CALLBACK(readInput), &input);
  g_signal_connect(source, "seek", G_CALLBACK(seekInput), &input);
  return Source(VIPS_SOURCE(source));
}

// -- Formats. Each is opened by its own loader: no other of libvips' many ever sees the file.

enum class Format { jpeg, png, webp, tiff, heif };

constexpr std::array<std::pair<Format, const char*>, 5> kLoaders{{
    {Format::jpeg, "jpegload_source"},
    {Format::png, "pngload_source"},
    {Format::webp, "webpload_source"},
    {Format::tiff, "tiffload_source"},
    {Format::heif, "heifload_source"},
}};

std::optional<Format> formatOf(VipsSource* source) {
  for (const auto& [format, loader] : kLoaders) {
    if (vips_foreign_is_a_source(loader, source)) return format;
  }
  return std::nullopt;
}

/// The image at the smallest size that its decoder offers and that is not below its size divided by
/// `reduction`. Pixels are decoded when they are asked for.
Image load(VipsSource* source, Format format, double reduction) {
  VipsImage* image = nullptr;
  const auto open = [&](auto operation, auto... options) {
    return operation(source, &image, "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                     VIPS_FAIL_ON_ERROR, options..., nullptr);
  };
  switch (format) {
    case Format::jpeg: {
      int shrink = 8;
      while (shrink > 1 && shrink > reduction) shrink /= 2;
      open(vips_jpegload_source, "shrink", shrink);
      break;
    }
    case Format::png:
      open(vips_pngload_source);
      break;
    case Format::webp:
      // Its own scaling is a plain mean; the rest is left to the better filter.
      open(vips_webpload_source, "scale", std::min(1.0, 2 / reduction));
      break;
    case Format::tiff:
      open(vips_tiffload_source);
      break;
    case Format::heif:
      open(vips_heifload_source);
      break;
  }
  return Image(image);
}

/// The small copy that a HEIF file may hold, if it serves as well as the image itself.
Image loadEmbeddedThumbnail(VipsSource* source, const VipsImage& whole, double reduction) {
  VipsImage* loaded = nullptr;
  vips_heifload_source(source, &loaded, "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                       VIPS_FAIL_ON_ERROR, "thumbnail", TRUE, nullptr);
  Image image(loaded);
  if (!image) return nullptr;
  const double across = static_cast<double>(whole.Xsize) / image->Xsize;
  const double down = static_cast<double>(whole.Ysize) / image->Ysize;
  const bool sameProportions = std::abs(across / down - 1) < 0.02;
  if (!sameProportions || across > reduction || down > reduction) return nullptr;
  return image;
}

int integerOf(VipsImage* image, const char* field) {
  int value = 0;
  if (vips_image_get_typeof(image, field) != 0) vips_image_get_int(image, field, &value);
  return value;
}

/// How much of a decoder's memory grows with the whole image, in bytes for each pixel.
double bytesHeldPerPixel(VipsImage* image, Format format) {
  const auto size = image->Bands * static_cast<double>(vips_format_sizeof(image->BandFmt));
  switch (format) {
    case Format::jpeg:
      // The coefficients of all scans, two bytes each; most files have half of the chroma or less.
      if (integerOf(image, "jpeg-multiscan") == 0) return 0;
      {
        const char* subsampling = nullptr;
        vips_image_get_string(image, "jpeg-chroma-subsample", &subsampling);
        const bool half = subsampling != nullptr && std::strcmp(subsampling, "4:2:0") == 0;
        return half ? size * 4 / 3 : size * 2;
      }
    case Format::png:
      return integerOf(image, "interlaced") != 0 ? size : 0;
    case Format::webp:
      return 4;
    case Format::tiff:
      return size;  // A strip or a tile may be as large as the image.
    case Format::heif:
      return size + 3;  // The picture as it is coded, and as pixels.
  }
  return size;
}

bool isTooLarge(VipsImage* image, Format format) {
  const double pixels = static_cast<double>(image->Xsize) * image->Ysize;
  return pixels > kMaximumPixels || pixels * bytesHeldPerPixel(image, format) > kMaximumBytesHeld;
}

// -- Small copy, colours, pixels.

/// How many times the image can be reduced before it has fewer pixels than the box asks for.
double reductionFor(const VipsImage& image, const Box& box) {
  const double across = static_cast<double>(image.Xsize) / box.width;
  const double down = static_cast<double>(image.Ysize) / box.height;
  return std::max(1.0,
                  box.fit == ImageFit::inside ? std::max(across, down) : std::min(across, down));
}

/// Applies a libvips operation; a null image passes through as null.
template <class Operation, class... Arguments>
Image apply(Image image, Operation operation, Arguments... arguments) {
  VipsImage* result = nullptr;
  if (image) operation(image.get(), &result, arguments..., nullptr);
  return Image(result);
}

Image resized(Image image, const Box& box) {
  auto size = VIPS_SIZE_BOTH;
  if (box.fit == ImageFit::inside) size = VIPS_SIZE_DOWN;
  if (box.fit == ImageFit::stretch) size = VIPS_SIZE_FORCE;
  const auto crop = box.fit == ImageFit::cover ? VIPS_INTERESTING_CENTRE : VIPS_INTERESTING_NONE;
  return apply(std::move(image), vips_thumbnail_image, box.width, "height", box.height, "size",
               size, "crop", crop, "no_rotate", TRUE);
}

Image inPlainColours(Image image) {
  image = apply(std::move(image), vips_colourspace, VIPS_INTERPRETATION_sRGB);
  if (image && vips_image_hasalpha(image.get())) {
    const std::unique_ptr<VipsArrayDouble, void (*)(VipsArrayDouble*)> white(
        vips_array_double_newv(1, 255.0),
        [](VipsArrayDouble* array) { vips_area_unref(VIPS_AREA(array)); });
    image = apply(std::move(image), vips_flatten, "background", white.get());
  }
  if (image && image->Bands > 3) image = apply(std::move(image), vips_extract_band, 0, "n", 3);
  return apply(std::move(image), vips_cast, VIPS_FORMAT_UCHAR);
}

/// Computes the pixels on this thread, a few rows at a time, as rows are decoded.
std::optional<RgbImage> pixelsOf(const Image& image) {
  if (!image || image->Bands != 3) return std::nullopt;
  const Owned<VipsRegion> region(vips_region_new(image.get()));
  RgbImage result{.width = image->Xsize, .height = image->Ysize, .pixels = {}};
  result.pixels.reserve(static_cast<std::size_t>(result.width) *
                        static_cast<std::size_t>(result.height) * 3);
  constexpr int kRows = 8;
  for (int top = 0; top < result.height; top += kRows) {
    std::size_t length = 0;
    const std::unique_ptr<VipsPel, decltype(&g_free)> rows(
        vips_region_fetch(region.get(), 0, top, result.width, std::min(kRows, result.height - top),
                          &length),
        g_free);
    if (!rows) return std::nullopt;
    result.pixels.insert(result.pixels.end(), rows.get(), rows.get() + length);
  }
  return result;
}

bool isSideways(int orientation) { return orientation >= 5; }

/// Turns the image as its EXIF orientation (1 to 8) says.
RgbImage upright(RgbImage image, int orientation) {
  if (orientation <= 1 || orientation > 8) return image;
  const int right = image.width - 1;
  const int bottom = image.height - 1;
  RgbImage result{.width = image.width, .height = image.height, .pixels = {}};
  if (isSideways(orientation)) std::swap(result.width, result.height);
  result.pixels.reserve(image.pixels.size());
  for (int y = 0; y < result.height; ++y) {
    for (int x = 0; x < result.width; ++x) {
      const int across = isSideways(orientation) ? y : x;
      const int down = isSideways(orientation) ? x : y;
      const bool fromRight = orientation == 2 || orientation == 3 || orientation >= 7;
      const bool fromBottom =
          orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
      const int column = fromRight ? right - across : across;
      const int row = fromBottom ? bottom - down : down;
      const auto* pixel =
          &image.pixels[(static_cast<std::size_t>(row) * static_cast<std::size_t>(image.width) +
                         static_cast<std::size_t>(column)) *
                        3];
      result.pixels.insert(result.pixels.end(), pixel, pixel + 3);
    }
  }
  return result;
}

Result<RgbImage> decode(VipsSource* source, Box box) {
  const auto format = formatOf(source);
  if (!format) return failure(ImageProblem::notAnImage);
  auto image = load(source, *format, 1);
  if (!image) return failure(ImageProblem::damaged);
  const int orientation = vips_image_get_orientation(image.get());
  if (isSideways(orientation)) std::swap(box.width, box.height);
  const double reduction = reductionFor(*image, box);
  Image thumbnail;
  if (*format == Format::heif) thumbnail = loadEmbeddedThumbnail(source, *image, reduction);
  if (thumbnail) {
    image = std::move(thumbnail);
  } else if (isTooLarge(image.get(), *format)) {
    return failure(ImageProblem::tooLarge);
  } else if (reduction > 1) {
    image = load(source, *format, reduction);
  }
  auto pixels = pixelsOf(inPlainColours(resized(std::move(image), box)));
  if (!pixels) return failure(ImageProblem::damaged);
  return upright(std::move(*pixels), orientation);
}

}  // namespace

Result<RgbImage> readImage(const std::filesystem::path& file, int width, int height, ImageFit fit) {
  if (std::min(width, height) < 1 || std::max(width, height) > kMaximumSide) {
    return std::unexpected(posixError(EINVAL, "decode"));
  }
  auto reader = FileReader::open(file);
  if (!reader) return std::unexpected(reader.error());
  if (!startVips()) return failure(ImageProblem::notAnImage);
  Input input{.file = std::move(*reader)};
  auto result = decode(sourceOf(input).get(), {width, height, fit});
  if (!result && input.failure) return std::unexpected(std::move(*input.failure));
  return result;
}

}  // namespace orvane::platform
