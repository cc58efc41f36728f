#include <orvane/platform/FileReader.h>
#include <orvane/platform/PosixError.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <stdexcept>

namespace orvane::platform {

Result<FileReader> FileReader::open(const std::filesystem::path& path) {
  // O_NONBLOCK: opening a pipe that nobody writes to must not wait.
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) return std::unexpected(lastPosixError("open"));
  struct stat status{};
  if (::fstat(file.get(), &status) != 0) return std::unexpected(lastPosixError("stat"));
  if (!S_ISREG(status.st_mode)) return std::unexpected(posixError(EINVAL, "open"));
  return FileReader(std::move(file), static_cast<std::size_t>(status.st_size));
}

Result<std::size_t> FileReader::read(std::span<std::byte> buffer) {
  std::size_t total = 0;
  while (total < buffer.size()) {
    const ssize_t count = ::read(file_.get(), buffer.data() + total, buffer.size() - total);
    if (count == 0) break;
    if (count > 0) {
      total += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return std::unexpected(lastPosixError("read"));
    }
  }
  return total;
}

Result<Bytes> readWholeFile(const std::filesystem::path& path) try {
  auto reader = FileReader::open(path);
  if (!reader) return std::unexpected(reader.error());
  constexpr std::size_t kStep = 64 * 1024;
  // One byte more than expected shows the end of the file without another read.
  Bytes content(reader->sizeAtOpen() + 1);
  std::size_t length = 0;
  for (;;) {
    const auto count = reader->read(std::span(content).subspan(length));
    if (!count) return std::unexpected(count.error());
    length += *count;
    if (length < content.size()) break;
    content.resize(content.size() + kStep);
  }
  content.resize(length);
  return content;
} catch (const std::bad_alloc&) {
  return std::unexpected(posixError(ENOMEM, "read"));
} catch (const std::length_error&) {
  return std::unexpected(posixError(ENOMEM, "read"));
}

}  // namespace orvane::platform
