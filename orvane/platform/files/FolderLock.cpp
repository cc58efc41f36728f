#include <orvane/platform/files/FolderLock.h>

#include <orvane/platform/files/FolderOperations.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace orvane::platform {
namespace {

/// A file and not the folder, for writing: network file systems lock nothing else exclusively.
FileDescriptor openForLocking(const std::filesystem::path& file) {
  return FileDescriptor(
      ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
}

}  // namespace

FolderLock::FolderLock(const std::filesystem::path& folder, std::chrono::milliseconds limit) {
  if (!createPrivateFolders(folder)) return;
  file_ = openForLocking(folder / ".lock");
  // Removing another user's file would let two processes of this one hold the lock.
  if (!file_) file_ = openForLocking(folder / (".lock-" + std::to_string(::geteuid())));
  if (!file_) return;
  const int failure = file_.lockWithin(limit);
  isHeld_ = failure == 0;
  isHeldByAnother_ = failure == EWOULDBLOCK;
}

FolderLock::~FolderLock() {
  // Closing alone would leave the lock to a child that was forked meanwhile and has the file too.
  if (isHeld_) ::flock(file_.get(), LOCK_UN);
}

}  // namespace orvane::platform
