#pragma once

#include <orvane/Error.h>

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

namespace orvane::platform {

/// Pixels in sRGB, rows from the top, three bytes each (red, green, blue), without padding.
struct RgbImage {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;
};

/// How an image gets into a box of other proportions.
enum class ImageFit {
  inside,   ///< Proportions kept; both sides within the box. A smaller image stays as it is.
  stretch,  ///< Exactly the box, whatever that does to the proportions; enlarged where needed.
  cover     ///< Proportions kept, enlarged where needed; the box's share of the middle cut out.
};

/// Domain of `readImage`'s own errors; their codes are the values of `ImageProblem`.
inline constexpr std::string_view kImageErrorDomain = "Image";

enum class ImageProblem {
  notAnImage = 1,  ///< None of the formats that can be read here.
  damaged = 2,     ///< Begins as an image, but cannot be decoded whole.
  tooLarge = 3     ///< Decoding would take too much memory.
};

/// Decodes an image file (JPEG, PNG, WebP, TIFF; HEIF where libvips has the decoder) into a box of
/// `width` by `height` pixels, each 1 to 2048; seen the right way up, its colours converted to sRGB
/// by its profile, what is transparent laid on white. Of several pages or frames, the first.
///
/// As far as the format allows, only the size needed is decoded, row by row. An image of more than
/// 500 megapixels or with a side above 65,535 is refused, and so is one for which more than 512 MiB
/// would be held at once: about 90 megapixels where the coding is kept whole (progressive JPEG,
/// interlaced PNG, WebP, HEIF; 170 for TIFF). So what cameras take passes, and panoramas of the
/// usual codings do.
///
/// Fails with a POSIX error when the file cannot be read or is not a regular one, else with the
/// domain "Image". Blocks for reading and computing, all on the calling thread, at its priority.
/// Any thread may call it, several at once.
///
/// The first call starts libvips for the whole process. In it, the cache of operations is then off,
/// since files may change, and libvips' warnings are dropped. (The codecs inside HEIF still print a
/// line about some damaged streams; nothing can be done about that.) When the process
/// exits, this fails with ECANCELED, after the step under way: a few rows, or all of an image whose
/// coding is kept whole.
[[nodiscard]] Result<RgbImage> readImage(const std::filesystem::path& file, int width, int height,
                                         ImageFit fit);

}  // namespace orvane::platform
