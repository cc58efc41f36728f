#pragma once

#include <chrono>
#include <utility>

namespace orvane::platform {

/// Owns one file descriptor and closes it.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  ~FileDescriptor() { close(); }

  [[nodiscard]] int get() const noexcept { return number_; }
  [[nodiscard]] explicit operator bool() const noexcept { return number_ >= 0; }

  /// Locks the file against all others that do this (flock), waiting at most `limit`. Returns 0 or
  /// an error number: EWOULDBLOCK where another holder has kept the lock all the time.
  [[nodiscard]] int lockWithin(std::chrono::milliseconds limit) const;

  /// Closes early; a failure to close is ignored.
  void close() noexcept;

 private:
  int number_ = -1;
};

}  // namespace orvane::platform
