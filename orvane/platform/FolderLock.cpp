#include <orvane/platform/FolderLock.h>

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <system_error>

namespace orvane::platform {

FileDescriptor lockFolder(const std::filesystem::path& folder) {
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  FileDescriptor lock(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  while (lock && ::flock(lock.get(), LOCK_EX) != 0 && errno == EINTR) {
  }
  return lock;
}

}  // namespace orvane::platform
