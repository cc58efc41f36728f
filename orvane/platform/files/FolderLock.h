#pragma once

#include <orvane/platform/files/FileDescriptor.h>

#include <chrono>
#include <filesystem>

namespace orvane::platform {

/// Advisory lock on a folder, held until destruction: one holder at a time among all processes and
/// calls that ask for it.
class FolderLock {
 public:
  /// Waits at most `limit` for the lock on `folder`, which is created for this user alone if it is
  /// missing. What is locked is a file ".lock" in it, or ".lock-<user number>" where another user
  /// owns the first and it cannot be opened. Where the folder cannot be created, on a file system
  /// without locks and when `limit` has passed, the caller goes on without the lock.
  FolderLock(const std::filesystem::path& folder, std::chrono::milliseconds limit);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  [[nodiscard]] bool isHeld() const noexcept { return isHeld_; }
  /// Whether another holder kept the lock until `limit` had passed.
  [[nodiscard]] bool isHeldByAnother() const noexcept { return isHeldByAnother_; }

 private:
  FileDescriptor file_;
  bool isHeld_ = false;
  bool isHeldByAnother_ = false;
};

}  // namespace orvane::platform
