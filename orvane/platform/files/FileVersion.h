#pragma once

#include <orvane/Error.h>

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace orvane::platform {

/// What tells one state of a file from another without reading it.
struct FileVersion {
  dev_t device = 0;
  ino_t inode = 0;
  std::int64_t size = 0;
  std::chrono::sys_time<std::chrono::nanoseconds> modified;

  friend bool operator==(const FileVersion&, const FileVersion&) = default;
};

/// Of the file that is at `path` now. Fails with a POSIX error. Blocks on the disk.
[[nodiscard]] Result<FileVersion> versionOf(const std::filesystem::path& path);

/// Of an open file, wherever it is by now.
[[nodiscard]] Result<FileVersion> versionOf(int descriptor);

}  // namespace orvane::platform
