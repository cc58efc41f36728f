#include <orvane/platform/files/FolderOperations.h>

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/files/FileDescriptor.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace orvane::platform {
namespace {

bool createOne(const std::filesystem::path& folder) {
  if (::mkdir(folder.c_str(), S_IRWXU) != 0) return false;
  // The folder can be used even where the one above cannot be opened to be synced.
  static_cast<void>(syncFolder(folder.parent_path()));
  return true;
}

}  // namespace

Result<void> createPrivateFolders(const std::filesystem::path& folder) {
  if (createOne(folder)) return {};
  if (errno == ENOENT && folder.has_parent_path() && folder.parent_path() != folder) {
    if (auto above = createPrivateFolders(folder.parent_path()); !above) return above;
    if (createOne(folder)) return {};
  }
  const int failure = errno;
  std::error_code ignored;
  if (std::filesystem::is_directory(folder, ignored)) return {};
  return std::unexpected(posixError(failure == EEXIST ? ENOTDIR : failure, "create folder"));
}

Result<void> syncFolder(const std::filesystem::path& folder) {
  const FileDescriptor directory(
      ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return std::unexpected(lastPosixError("open folder"));
  if (::fsync(directory.get()) != 0) return std::unexpected(lastPosixError("sync folder"));
  return {};
}

}  // namespace orvane::platform
