#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/files/FileDescriptor.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace orvane::platform {

/// Reads a regular file.
///
/// Anything else at the path (a directory, a pipe, a device) is refused, since reading it could
/// block or never end. One thread at a time; all calls block on the disk.
class FileReader {
 public:
  /// Fails with a POSIX error when the file cannot be opened or is not a regular file (EINVAL).
  [[nodiscard]] static Result<FileReader> open(const std::filesystem::path& path);

  /// The size in bytes when the file was opened.
  [[nodiscard]] std::size_t sizeAtOpen() const noexcept { return size_; }

  /// The open file, for another process to read.
  [[nodiscard]] int descriptor() const noexcept { return file_.get(); }

  /// Fills `buffer` from the current position and returns how many bytes were read: fewer than
  /// asked for only at the end of the file, 0 when nothing is left. Fails with a POSIX error.
  [[nodiscard]] Result<std::size_t> read(std::span<std::byte> buffer);

  /// The same from `offset` bytes after the start; the current position stays.
  [[nodiscard]] Result<std::size_t> readAt(std::uint64_t offset, std::span<std::byte> buffer);

 private:
  FileReader(FileDescriptor file, std::size_t size) : file_(std::move(file)), size_(size) {}

  FileDescriptor file_;
  std::size_t size_ = 0;
};

/// The whole content of a regular file. Fails with a POSIX error; ENOMEM when it does not fit into
/// memory. Blocks on the disk.
[[nodiscard]] Result<SharedBytes> readWholeFile(const std::filesystem::path& path);

}  // namespace orvane::platform
