#include <orvane/platform/files/AtomicFile.h>

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/files/Directories.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>

namespace orvane::platform {
namespace {

constexpr std::size_t kBufferSize = 1 << 20;
/// Of one writer; after that it has stopped, or its end has left the lock to a forked child.
constexpr std::chrono::seconds kLongestTurn{10};

FileDescriptor openTemporary(const std::filesystem::path& name) {
  return FileDescriptor(::open(
      name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR));
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

/// Locks the temporary file; one that another writer keeps locked is removed. A file system without
/// locks is no reason not to write: one writer is the rule.
void lock(const FileDescriptor& file, const std::filesystem::path& temporary) {
  if (file.lockWithin(kLongestTurn) == EWOULDBLOCK && leadsTo(temporary, file)) {
    ::unlink(temporary.c_str());
  }
}

/// Opens and locks the temporary file. While waiting for the lock, its former holder may have
/// renamed or removed the file, so the name must still lead to what was locked. A file of another
/// user is removed once: some file systems show one's own files as another user's.
Result<FileDescriptor> openLocked(const std::filesystem::path& temporary) {
  for (bool isRemoved = false;;) {
    auto file = openTemporary(temporary);
    const int failure = errno;
    if (file) lock(file, temporary);
    if (!isRemoved && removeOfAnotherUser(temporary)) {
      isRemoved = true;
      continue;
    }
    if (!file) return std::unexpected(posixError(failure, "create"));
    if (leadsTo(temporary, file)) return file;
  }
}

}  // namespace

AtomicFile::AtomicFile(std::filesystem::path target, std::filesystem::path temporary,
                       FileDescriptor file)
    : target_(std::move(target)), temporary_(std::move(temporary)), file_(std::move(file)) {
  buffer_.reserve(kBufferSize);
}

Result<AtomicFile> AtomicFile::create(const std::filesystem::path& target) {
  auto temporary = target;
  temporary.replace_filename("." + target.filename().string() + ".tmp");
  auto file = openLocked(temporary);
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
  // Others may have removed the file, and another writer may be at work under its name.
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
