#pragma once

#include <orvane/platform/files/FileDescriptor.h>

#include <chrono>
#include <filesystem>

namespace orvane::platform {

/// A turn with a folder among the processes and calls that ask for one; it ends with this object.
class FolderLock {
 public:
  /// Waits for the turn with `folder`, which is created for this user alone if it is not there; the
  /// lock is that of a file ".lock" in it, or ".lock-<user number>" where the first is another
  /// user's and cannot be opened. Without a folder, on a file system without locks and
  /// when `limit` has passed, the caller goes on without the turn.
  FolderLock(const std::filesystem::path& folder, std::chrono::milliseconds limit);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  [[nodiscard]] bool isHeld() const noexcept { return isHeld_; }
  /// Whether the turn failed to come since another one had it until `limit` had passed.
  [[nodiscard]] bool isHeldByAnother() const noexcept { return isHeldByAnother_; }

 private:
  FileDescriptor file_;
  bool isHeld_ = false;
  bool isHeldByAnother_ = false;
};

}  // namespace orvane::platform
