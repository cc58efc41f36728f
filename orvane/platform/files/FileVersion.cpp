#include <orvane/platform/files/FileVersion.h>

#include <orvane/platform/base/PosixError.h>

#include <sys/stat.h>

namespace orvane::platform {
namespace {

Result<FileVersion> versionIn(int outcome, const struct stat& attributes) {
  if (outcome != 0) return std::unexpected(lastPosixError("stat"));
  const auto& time = attributes.st_mtim;
  return FileVersion{
      .device = attributes.st_dev,
      .inode = attributes.st_ino,
      .size = attributes.st_size,
      .modified = std::chrono::sys_time<std::chrono::nanoseconds>(
          std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec))};
}

}  // namespace

Result<FileVersion> versionOf(const std::filesystem::path& path) {
  struct stat attributes{};
  return versionIn(::stat(path.c_str(), &attributes), attributes);
}

Result<FileVersion> versionOf(int descriptor) {
  struct stat attributes{};
  return versionIn(::fstat(descriptor, &attributes), attributes);
}

}  // namespace orvane::platform
