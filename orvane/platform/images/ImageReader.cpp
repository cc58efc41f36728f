#include <orvane/platform/images/ImageReader.h>

#include <orvane/platform/base/Helpers.h>
#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/ProcessExit.h>
#include <orvane/platform/files/FileReader.h>
#include <orvane/platform/images/internal/ImageWorker.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <utility>

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;

constexpr int kMaximumBoxSide = 2048;

constexpr std::array<const char*, 10> kSentences{
    "",
    "is not a JPEG, PNG, WebP, TIFF or HEIF image",
    "is damaged",
    "has more than 500 megapixels",
    "has a side of more than 65,535 pixels",
    "has one side more than 100 times as long as the other",
    "is cut off",
    "takes too long to decode",
    "takes more than 768 MiB of memory to decode",
    "makes its decoder crash",
};

std::unexpected<Error> failure(const fs::path& file, ImageProblem problem) {
  const auto code = std::to_underlying(problem);
  return std::unexpected(
      Error(kImageErrorDomain, code,
            file.string() + " " + kSentences.at(static_cast<std::size_t>(code))));
}

/// The error with the name of the file, which the system's words lack.
std::unexpected<Error> unreadable(const fs::path& file, const Error& error) {
  std::error_code ignored;
  const auto number = static_cast<int>(error.code());
  if (number != EINVAL) return std::unexpected(posixError(number, file.string()));
  if (fs::is_directory(file, ignored)) return std::unexpected(posixError(EISDIR, file.string()));
  return std::unexpected(Error(Error::kPosix, EINVAL, file.string() + " is not a regular file"));
}

/// The calling thread's worker. A thread that is ending has none: at its very end, code of the host
/// may still run.
struct ThreadWorker {
  std::optional<ImageWorker> worker;
  ~ThreadWorker() { isGone = true; }
  static thread_local bool isGone;
};

thread_local bool ThreadWorker::isGone = false;

}  // namespace

Result<RgbImage> readImage(const fs::path& file, int width, int height, ImageFit fit,
                           std::chrono::milliseconds limit) {
  if (std::min(width, height) < 1 || std::max(width, height) > kMaximumBoxSide) {
    return std::unexpected(posixError(EINVAL, "decode"));
  }
  auto reader = FileReader::open(file);
  if (!reader) return unreadable(file, reader.error());
  [[maybe_unused]] static const bool watched = (ProcessExit::watch(), true);
  if (ThreadWorker::isGone || ProcessExit::hasBegun()) return std::unexpected(ProcessExit::error());
  static thread_local ThreadWorker own;
  auto& worker = own.worker;
  if (!worker || !worker->isReady()) {
    worker.reset();
    auto started = ImageWorker::start(helperFolder() / "orvane-image-worker");
    if (!started && ProcessExit::hasBegun()) return std::unexpected(ProcessExit::error());
    if (!started) {
      return std::unexpected(Error(Error::kPosix, started.error().code(),
                                   file.string() + ": " + started.error().description()));
    }
    worker.emplace(std::move(*started));
  }
  auto image = worker->decode(reader->descriptor(), {width, height, fit}, limit);
  if (!image && ProcessExit::hasBegun()) return std::unexpected(ProcessExit::error());
  if (!image) return failure(file, image.error());
  return std::move(*image);
}

}  // namespace orvane::platform
