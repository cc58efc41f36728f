#pragma once

#include <orvane/Error.h>
#include <orvane/platform/files/FileDescriptor.h>
#include <orvane/platform/images/internal/ImageMessage.h>

#include <sys/types.h>

#include <chrono>
#include <expected>
#include <filesystem>

namespace orvane::platform {

/// Time that a worker may take. While this process is stopped, and its worker perhaps with it, no
/// time passes; that is seen by a look at the clock that comes far too late, so `left` is to be
/// asked several times a second.
class TimeLeft {
 public:
  explicit TimeLeft(std::chrono::milliseconds limit);
  [[nodiscard]] std::chrono::milliseconds left();

 private:
  std::chrono::steady_clock::time_point seen_;
  std::chrono::steady_clock::time_point deadline_;
};

/// A running `orvane-image-worker`, killed when this object goes. One thread at a time.
///
/// The program starts with an empty environment and no descriptor of this process but its end of a
/// socket. Every signal that can be is blocked: what is sent to the whole group of processes, to
/// end or to stop it, is the host's to follow. The worker ends by itself when the thread that
/// started it does.
class ImageWorker {
 public:
  /// Waits until the worker is ready, at most `kImageTimeLimit`. Fails with a POSIX error whose
  /// sentence names the program: ENOEXEC where it ends before it is ready.
  [[nodiscard]] static Result<ImageWorker> start(const std::filesystem::path& program);

  ImageWorker(ImageWorker&&) noexcept = default;
  ImageWorker& operator=(ImageWorker&&) = delete;
  ~ImageWorker();

  /// Whether it waits for an image, so far as can be told. A forked child must not use it.
  [[nodiscard]] bool isReady() const;

  /// Has it decode an open file. After `tooSlow`, `tooMuchMemory` and `crashed` it has been killed.
  [[nodiscard]] std::expected<RgbImage, ImageProblem> decode(int file, const ImageRequest& request,
                                                             std::chrono::milliseconds limit);

 private:
  ImageWorker(FileDescriptor socket, FileDescriptor process);

  [[nodiscard]] bool receive(void* bytes, std::size_t count, TimeLeft& time);
  /// Kills the process.
  void stop();

  FileDescriptor socket_;
  FileDescriptor process_;  ///< Unlike a number, never stands for another process.
  pid_t owner_;
};

}  // namespace orvane::platform
