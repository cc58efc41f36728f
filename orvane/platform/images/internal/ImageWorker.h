#pragma once

#include <orvane/Error.h>
#include <orvane/platform/files/FileDescriptor.h>
#include <orvane/platform/images/internal/ImageMessage.h>

#include <sys/types.h>

#include <chrono>
#include <expected>
#include <filesystem>

namespace orvane::platform {

/// A running `orvane-image-worker`, killed when this object goes. One thread at a time.
///
/// The program starts with an empty environment, no signal blocked or ignored, and no descriptor of
/// this process but its end of a socket. It ends by itself when the thread that started it does.
class ImageWorker {
 public:
  using Clock = std::chrono::steady_clock;

  /// Fails with a POSIX error whose sentence names the program.
  [[nodiscard]] static Result<ImageWorker> start(const std::filesystem::path& program);

  ImageWorker(ImageWorker&&) noexcept = default;
  ImageWorker& operator=(ImageWorker&&) = delete;
  ~ImageWorker();

  /// Whether it waits for an image, so far as can be told. A forked child must not use it.
  [[nodiscard]] bool isReady() const;

  /// Has it decode an open file. After `tooSlow`, `tooMuchMemory` and `crashed` it has ended.
  [[nodiscard]] std::expected<RgbImage, ImageProblem> decode(int file, const ImageRequest& request,
                                                             Clock::time_point deadline);

 private:
  ImageWorker(FileDescriptor socket, FileDescriptor process);

  [[nodiscard]] bool receive(void* bytes, std::size_t count, Clock::time_point deadline);
  /// Ends the process. Gives its exit status, -1 when a signal ended it.
  int stop();

  FileDescriptor socket_;
  FileDescriptor process_;  ///< Unlike a number, never stands for another process.
  pid_t owner_;
};

}  // namespace orvane::platform
