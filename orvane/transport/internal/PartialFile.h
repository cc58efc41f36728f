#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/files/FileDescriptor.h>
#include <orvane/transport/internal/ModificationTime.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::transport {

/// A file beside a target that takes in the ranges of an object until the target can be made of
/// it. It outlives the process: behind the object's bytes it holds a digest of the version and one
/// byte for each range, 1 once the range is on the disk. Objects of a single range have no such
/// tail, since there is nothing to go on with.
///
/// Everything blocks on the disk and fails with a POSIX error. `write` may be called by several
/// threads for different ranges at the same time, the rest by one at a time.
class PartialFile {
 public:
  /// Opens or creates the one of this target, and keeps other processes and calls from it: they
  /// get EWOULDBLOCK. What lies at its path and is no regular file of this user, or has a second
  /// name, is refused.
  [[nodiscard]] static Result<PartialFile> open(const std::filesystem::path& target);

  [[nodiscard]] static bool isNameOfOne(std::string_view name);

  [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }
  /// What it held when it was opened, or holds since it was cleared.
  [[nodiscard]] std::int64_t size() const noexcept { return size_; }

  [[nodiscard]] Result<void> clear();

  /// Makes room for the object. Ranges of the same version stay, anything else goes. `version`
  /// tells versions apart, their sizes and the size of the ranges included.
  [[nodiscard]] Result<void> begin(const std::string& version, std::int64_t objectSize,
                                   std::int64_t rangeSize);
  /// The ranges that were missing when it began, in order.
  [[nodiscard]] const std::vector<std::int64_t>& missing() const noexcept { return missing_; }

  /// Takes in a range: it is on the disk before it counts.
  [[nodiscard]] Result<void> write(std::int64_t range, ByteView bytes);

  /// Makes it the target, which is either whole or untouched whenever the machine stops. Fails with
  /// EEXIST where there is a target already that is not to be replaced.
  [[nodiscard]] Result<void> finish(const std::filesystem::path& target, bool replaces,
                                    std::int64_t objectSize, std::optional<FileTime> modified);

  void remove() const noexcept;

  /// Removes the unfinished file beside a target that needs none, unless somebody is writing it.
  static void removeBeside(const std::filesystem::path& target);

 private:
  [[nodiscard]] Result<void> allocate(std::int64_t size) const;
  /// Whether the tail is that of the version; then `missing_` is what it says.
  [[nodiscard]] Result<bool> readTail(ByteView digest, std::int64_t rangeCount);
  [[nodiscard]] Result<void> rename(const std::filesystem::path& target, bool replaces) const;

  std::filesystem::path path_;
  platform::FileDescriptor file_;
  std::int64_t size_ = 0;
  std::int64_t objectSize_ = 0;
  std::int64_t rangeSize_ = 0;
  bool hasTail_ = false;
  std::vector<std::int64_t> missing_;
};

}  // namespace orvane::transport
