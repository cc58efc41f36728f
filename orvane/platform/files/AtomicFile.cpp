#include <orvane/platform/files/AtomicFile.h>

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/files/FolderOperations.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace orvane::platform {
namespace {

constexpr std::size_t kBufferSize = 1 << 20;
FileDescriptor openTemporary(const std::filesystem::path& name, int create) {
  return FileDescriptor(::open(
      name.c_str(), create | O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR));
}

/// Locks the file unless another writer has it. A file system without locks is no reason not to
/// write: one writer is the rule.
bool lock(const FileDescriptor& file) { return file.lockWithin({}) != EWOULDBLOCK; }

/// The name of the `number`th temporary file of a target, from 1 on.
std::filesystem::path temporaryName(const std::filesystem::path& target, int number) {
  const auto end = number == 1 ? std::string() : "-" + std::to_string(number);
  return target.parent_path() / ("." + target.filename().string() + ".tmp" + end);
}

bool leadsTo(const std::filesystem::path& name, const FileDescriptor& file) {
  struct stat named{};
  struct stat opened{};
  return ::lstat(name.c_str(), &named) == 0 && ::fstat(file.get(), &opened) == 0 &&
         named.st_ino == opened.st_ino && named.st_dev == opened.st_dev;
}

/// Removes a file that another user has left under the name.
bool removeOfAnotherUser(const std::filesystem::path& name) {
  struct stat named{};
  return ::lstat(name.c_str(), &named) == 0 && named.st_uid != ::geteuid() &&
         ::unlink(name.c_str()) == 0;
}

/// Removes the next few temporary files if no writer has them: what a killed one has left that
/// wrote at the same time as others.
void removeLeftBehind(const std::filesystem::path& target, int first) {
  constexpr int kMaxWriters = 3;  // More at a time are rare, and each costs a look.
  for (int number = first; number < first + kMaxWriters; ++number) {
    const auto name = temporaryName(target, number);
    const auto file = openTemporary(name, 0);
    if (file && lock(file) && leadsTo(name, file)) ::unlink(name.c_str());
  }
}

/// Opens and locks the first temporary file that no other writer has: a new one, or one that a
/// killed writer has left. Its former holder may rename or remove it before it is locked, so the
/// name must still lead to it then. A file of another user is removed once: some file systems show
/// one's own files as another user's.
Result<FileDescriptor> openFree(const std::filesystem::path& target,
                                std::filesystem::path& temporary) {
  bool isRemoved = false;
  for (int number = 1;;) {
    temporary = temporaryName(target, number);
    auto file = openTemporary(temporary, O_CREAT);
    const int failure = errno;
    if (file && !lock(file)) {
      ++number;
    } else if (!isRemoved && removeOfAnotherUser(temporary)) {
      isRemoved = true;
    } else if (!file) {
      return std::unexpected(posixError(failure, "create"));
    } else if (leadsTo(temporary, file)) {
      removeLeftBehind(target, number + 1);
      return file;
    }
  }
}

}  // namespace

AtomicFile::AtomicFile(std::filesystem::path target, std::filesystem::path temporary,
                       FileDescriptor file)
    : target_(std::move(target)), temporary_(std::move(temporary)), file_(std::move(file)) {
  buffer_.reserve(kBufferSize);
}

Result<AtomicFile> AtomicFile::create(const std::filesystem::path& target) {
  std::filesystem::path temporary;
  auto file = openFree(target, temporary);
  if (!file) return std::unexpected(file.error());
  // A killed writer may have left content, or the file may have been made by hand.
  if (::ftruncate(file->get(), 0) != 0) return std::unexpected(lastPosixError("empty"));
  // Some file systems keep no modes; the file was created with this one where they do.
  static_cast<void>(::fchmod(file->get(), S_IRUSR | S_IWUSR));
  return AtomicFile(target, std::move(temporary), std::move(*file));
}

AtomicFile::~AtomicFile() {
  if (file_ && leadsTo(temporary_, file_)) ::unlink(temporary_.c_str());
}

Result<void> AtomicFile::append(ByteView bytes) {
  if (buffer_.size() + bytes.size() > kBufferSize) {
    if (auto flushed = flush(); !flushed) return flushed;
  }
  if (bytes.size() >= kBufferSize) return writeAll(bytes);
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  return {};
}

Result<void> AtomicFile::commit() {
  if (auto flushed = flush(); !flushed) return flushed;
  if (::fsync(file_.get()) != 0) return std::unexpected(lastPosixError("sync"));
  // Another user may have removed the file, and another writer may be at work under its name.
  if (!leadsTo(temporary_, file_)) return std::unexpected(posixError(ESTALE, "rename"));
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
    return std::unexpected(lastPosixError("rename"));
  }
  file_.close();
  return syncFolder(target_.parent_path());
}

Result<void> AtomicFile::flush() {
  auto written = writeAll(buffer_);
  buffer_.clear();
  return written;
}

Result<void> AtomicFile::writeAll(ByteView bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
    if (count >= 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return std::unexpected(lastPosixError("write"));
    }
  }
  return {};
}

}  // namespace orvane::platform
