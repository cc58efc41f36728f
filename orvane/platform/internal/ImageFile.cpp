#include <orvane/platform/internal/ImageFile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace orvane::platform {
namespace {

using Image = VipsHandle<VipsImage>;

constexpr std::array<std::pair<ImageFile::Format, const char*>, 5> kLoaders{{
    {ImageFile::Format::jpeg, "jpegload_source"},
    {ImageFile::Format::png, "pngload_source"},
    {ImageFile::Format::webp, "webpload_source"},
    {ImageFile::Format::tiff, "tiffload_source"},
    {ImageFile::Format::heif, "heifload_source"},
}};

/// Half an image is none: a file that ends early fails.
template <class Loader, class... Options>
Image open(VipsSource* source, Loader loader, Options... options) {
  VipsImage* image = nullptr;
  loader(source, &image, "access", VIPS_ACCESS_SEQUENTIAL, "fail_on", VIPS_FAIL_ON_ERROR,
         options..., nullptr);
  return Image(image);
}

int jpegShrink(double reduction) {
  int shrink = 8;
  while (shrink > 1 && shrink > reduction) shrink /= 2;
  return shrink;
}

}  // namespace

ImageFile::ImageFile(FileReader file) : input_{.file = std::move(file)} {
  auto* custom = vips_source_custom_new();
  source_.reset(VIPS_SOURCE(custom));
  g_signal_connect(custom, "read", G_CALLBACK(read), &input_);
  g_signal_connect(custom, "seek", G_CALLBACK(seek), &input_);
}

gint64 ImageFile::read(VipsSourceCustom* /*source*/, void* buffer, gint64 length, gpointer data) {
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

gint64 ImageFile::seek(VipsSourceCustom* /*source*/, gint64 offset, int whence, gpointer data) {
  auto& input = *static_cast<Input*>(data);
  if (whence == SEEK_CUR) offset += static_cast<gint64>(input.offset);
  if (whence == SEEK_END) offset += static_cast<gint64>(input.file.sizeAtOpen());
  if (offset < 0) return -1;
  input.offset = static_cast<std::uint64_t>(offset);
  return offset;
}

std::optional<ImageFile::Format> ImageFile::format() const {
  for (const auto& [format, loader] : kLoaders) {
    if (vips_foreign_is_a_source(loader, source_.get())) return format;
  }
  return std::nullopt;
}

Image ImageFile::load(Format format, double reduction) {
  switch (format) {
    case Format::jpeg:
      return open(source_.get(), vips_jpegload_source, "shrink", jpegShrink(reduction));
    case Format::png:
      return open(source_.get(), vips_pngload_source);
    case Format::webp:
      return open(source_.get(), vips_webpload_source, "scale", 1 / reduction);
    case Format::tiff:
      return open(source_.get(), vips_tiffload_source);
    case Format::heif:
      return open(source_.get(), vips_heifload_source);
  }
  return nullptr;
}

Image ImageFile::loadEmbedded(const VipsImage& whole, double reduction) {
  auto image = open(source_.get(), vips_heifload_source, "thumbnail", TRUE);
  if (!image) return nullptr;
  const double across = static_cast<double>(whole.Xsize) / image->Xsize;
  const double down = static_cast<double>(whole.Ysize) / image->Ysize;
  const bool sameProportions = std::abs(across / down - 1) < 0.02;
  const bool isSmaller = std::min(across, down) >= 1;
  if (!sameProportions || !isSmaller || std::max(across, down) > reduction) return nullptr;
  return image;
}

}  // namespace orvane::platform
