#include <orvane/platform/files/FileReader.h>

#include <orvane/platform/base/MappedMemory.h>
#include <orvane/platform/base/PosixError.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

namespace orvane::platform {
namespace {

/// Reads until the buffer is full or nothing is left; `readFrom` gets how much is there already.
template <class ReadFrom>
Result<std::size_t> fill(std::span<std::byte> buffer, ReadFrom readFrom) {
  std::size_t total = 0;
  while (total < buffer.size()) {
    const ssize_t count = readFrom(total);
    if (count == 0) break;
    if (count > 0) {
      total += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return std::unexpected(lastPosixError("read"));
    }
  }
  return total;
}

/// Room for a file's content. What an allocator takes back it may keep for ever, which matters once
/// many files are read side by side. Not cleared first: that would cost a tenth of hashing it.
std::shared_ptr<std::byte[]> memoryFor(std::size_t size) {
  constexpr std::size_t kLarge = std::size_t{1} << 20;
  if (size < kLarge) return std::make_shared_for_overwrite<std::byte[]>(size);
  auto memory = mappedMemory(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}

}  // namespace

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
  return fill(buffer, [&](std::size_t done) {
    return ::read(file_.get(), buffer.data() + done, buffer.size() - done);
  });
}

Result<std::size_t> FileReader::readAt(std::uint64_t offset, std::span<std::byte> buffer) {
  return fill(buffer, [&](std::size_t done) {
    return ::pread(file_.get(), buffer.data() + done, buffer.size() - done,
                   static_cast<off_t>(offset + done));
  });
}

Result<SharedBytes> readWholeFile(const std::filesystem::path& path) try {
  auto reader = FileReader::open(path);
  if (!reader) return std::unexpected(reader.error());
  // One byte more than expected shows the end of the file without another read.
  std::size_t capacity = reader->sizeAtOpen() + 1;
  auto content = memoryFor(capacity);
  std::size_t length = 0;
  for (;;) {
    const auto count = reader->read({content.get() + length, capacity - length});
    if (!count) return std::unexpected(count.error());
    length += *count;
    if (length < capacity) break;
    capacity *= 2;  // The file has grown since it was opened.
    auto larger = memoryFor(capacity);
    std::copy_n(content.get(), length, larger.get());
    content = std::move(larger);
  }
  const ByteView view(content.get(), length);
  return SharedBytes(std::move(content), view);
} catch (const std::bad_alloc&) {
  return std::unexpected(posixError(ENOMEM, "read"));
}

}  // namespace orvane::platform
