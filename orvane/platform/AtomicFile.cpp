#include <orvane/platform/AtomicFile.h>
#include <orvane/platform/Directories.h>
#include <orvane/platform/PosixError.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace orvane::platform {
namespace {

constexpr std::size_t kBufferSize = 1 << 20;

/// Opens and locks the temporary file. While waiting for the lock, its former holder may have
/// renamed or removed the file, so the name must still lead to what was locked.
Result<FileDescriptor> openLocked(const std::filesystem::path& temporary) {
  for (;;) {
    FileDescriptor file(::open(temporary.c_str(),
                               O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                               S_IRUSR | S_IWUSR));
    if (!file) return std::unexpected(lastPosixError("create"));
    // A file system without locks is no reason not to write: one writer is the rule.
    while (::flock(file.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    struct stat locked{};
    struct stat named{};
    if (::fstat(file.get(), &locked) != 0) return std::unexpected(lastPosixError("stat"));
    if (::lstat(temporary.c_str(), &named) == 0 && named.st_ino == locked.st_ino &&
        named.st_dev == locked.st_dev) {
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
  if (file_) ::unlink(temporary_.c_str());
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
