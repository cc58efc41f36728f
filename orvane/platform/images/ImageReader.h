#pragma once

#include <orvane/Error.h>

#include <chrono>
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
enum class ImageFit : std::int32_t {
  inside,   ///< Proportions kept; both sides within the box. A smaller image stays as it is.
  stretch,  ///< Exactly the box, whatever that does to the proportions; enlarged where needed.
  cover     ///< Proportions kept, enlarged where needed; the box's share of the middle cut out.
};

/// Domain of `readImage`'s own errors; their codes are the values of `ImageProblem`.
inline constexpr std::string_view kImageErrorDomain = "Image";

enum class ImageProblem : std::int32_t {
  none = 0,
  notAnImage = 1,     ///< None of the formats that can be read here.
  damaged = 2,        ///< Begins as an image, but cannot be decoded whole.
  tooManyPixels = 3,  ///< More than 500 megapixels.
  tooLong = 4,        ///< A side above 65,535 pixels.
  tooNarrow = 5,      ///< One side more than 100 times the other.
  cutOff = 6,         ///< The file ends before the image does.
  tooSlow = 7,        ///< Not decoded within the time limit.
  tooMuchMemory = 8,  ///< The decoder needed more memory than it may have.
  crashed = 9         ///< The decoder ended in the middle of the image.
};

/// How long one image may take.
inline constexpr std::chrono::seconds kImageTimeLimit{20};

/// Decodes an image file (JPEG, PNG, WebP, TIFF; HEIF where libvips has the decoder) into a box of
/// `width` by `height` pixels, each 1 to 2048; seen the right way up, its colours converted to sRGB
/// by its profile, what is transparent laid on white. Of several pages or frames, the first.
///
/// A reduced image does not depend on how large it was: it is decoded to twice the size wanted, and
/// each pixel is the mean of four.
///
/// The decoders run in `orvane-image-worker`, a process of its own, which may use 768 MiB and
/// `limit` for an image, and open no other file. Time in which this process is stopped does not
/// count. Whatever an image does to the worker, this process stays well and gets an answer in time;
/// but an image that takes the worker over may answer in its place, for images of the same thread
/// that follow as well: their pixels, or errors, are then of its making.
///
/// Each calling thread has its own worker: started for its first image, used for all that follow,
/// replaced when it has ended, killed when the thread ends.
///
/// Fails with a POSIX error when the file cannot be read, is not a regular one, or the worker
/// cannot be started (ENOEXEC where its program runs but does not get ready, which says nothing
/// about the image); else with the domain "Image". Each sentence names the file and what is wrong.
///
/// Fails with ECANCELED once the process has begun to exit, also when an image is under way.
///
/// Blocks for decoding, at the calling thread's priority. Any thread may call it, several at once.
[[nodiscard]] Result<RgbImage> readImage(const std::filesystem::path& file, int width, int height,
                                         ImageFit fit,
                                         std::chrono::milliseconds limit = kImageTimeLimit);

}  // namespace orvane::platform
