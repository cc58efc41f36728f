#include <orvane/platform/Directories.h>
#include <orvane/platform/PosixError.h>

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace orvane::platform {

Result<void> createPrivateDirectories(const std::filesystem::path& folder) {
  if (::mkdir(folder.c_str(), S_IRWXU) == 0) return {};
  if (errno == ENOENT && folder.has_parent_path() && folder.parent_path() != folder) {
    if (auto above = createPrivateDirectories(folder.parent_path()); !above) return above;
    if (::mkdir(folder.c_str(), S_IRWXU) == 0) return {};
  }
  const int failure = errno;
  std::error_code ignored;
  if (std::filesystem::is_directory(folder, ignored)) return {};
  return std::unexpected(posixError(failure, "create folder"));
}

}  // namespace orvane::platform
