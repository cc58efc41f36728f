#include <orvane/transport/internal/PartialFile.h>

#include <orvane/platform/base/Digest.h>
#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/files/FolderOperations.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

namespace orvane::transport {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kNameBegin = ".orvane-";
constexpr std::string_view kNameEnd = ".part";
constexpr std::size_t kNameDigits = 16;
constexpr std::int64_t kDigestSize = sizeof(platform::Digest);
constexpr std::byte kStored{1};

fs::path pathBeside(const fs::path& target) {
  const auto digest = platform::hexString(platform::sha256(bytesOf(target.filename().native())));
  return target.parent_path() /
         std::string(kNameBegin).append(digest, 0, kNameDigits).append(kNameEnd);
}

Result<void> outcomeOf(int result, std::string_view action) {
  if (result == 0) return {};
  return std::unexpected(platform::lastPosixError(action));
}

Result<void> writeAt(const platform::FileDescriptor& file, std::int64_t offset, ByteView bytes) {
  while (!bytes.empty()) {
    const auto count = pwrite(file.get(), bytes.data(), bytes.size(), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::unexpected(platform::lastPosixError("write"));
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += count;
  }
  return {};
}

Result<struct stat> attributesOf(const platform::FileDescriptor& file) {
  struct stat attributes{};
  if (fstat(file.get(), &attributes) != 0) {
    return std::unexpected(platform::lastPosixError("stat"));
  }
  const bool isOurs = S_ISREG(attributes.st_mode) && attributes.st_uid == geteuid();
  if (!isOurs || attributes.st_nlink > 1) {
    return std::unexpected(platform::posixError(EPERM, "use what is in the way of the download"));
  }
  return attributes;
}

bool isAt(const fs::path& path, const struct stat& file) {
  struct stat named{};
  return lstat(path.c_str(), &named) == 0 && named.st_dev == file.st_dev &&
         named.st_ino == file.st_ino;
}

}  // namespace

bool PartialFile::isNameOfOne(std::string_view name) {
  return name.size() == kNameBegin.size() + kNameDigits + kNameEnd.size() &&
         name.starts_with(kNameBegin) && name.ends_with(kNameEnd);
}

Result<PartialFile> PartialFile::open(const fs::path& target) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  constexpr mode_t kReadableAsUsual = 0666;
  constexpr int kAttempts = 10;
  PartialFile partial;
  partial.path_ = pathBeside(target);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    partial.file_ =
        platform::FileDescriptor(::open(partial.path_.c_str(), kFlags, kReadableAsUsual));
    if (!partial.file_) return std::unexpected(platform::lastPosixError("open"));
    if (partial.file_.lockWithin(std::chrono::milliseconds(0)) == EWOULDBLOCK) break;
    const auto attributes = attributesOf(partial.file_);
    if (!attributes) return std::unexpected(attributes.error());
    partial.size_ = attributes->st_size;
    // Whoever held the lock may have made the target of the file meanwhile, or removed it.
    if (isAt(partial.path_, *attributes)) return partial;
  }
  return std::unexpected(platform::posixError(EWOULDBLOCK, "download what is being downloaded"));
}

Result<void> PartialFile::clear() {
  size_ = 0;
  return outcomeOf(ftruncate(file_.get(), 0), "truncate");
}

Result<void> PartialFile::begin(const std::string& version, std::int64_t objectSize,
                                std::int64_t rangeSize) {
  objectSize_ = objectSize;
  rangeSize_ = rangeSize;
  const auto rangeCount = (objectSize + rangeSize - 1) / rangeSize;
  hasTail_ = rangeCount > 1;
  const auto wholeSize = objectSize + (hasTail_ ? kDigestSize + rangeCount : 0);
  const auto digest = platform::sha256(bytesOf(version));
  if (hasTail_ && size_ == wholeSize) {
    const auto same = readTail(digest, rangeCount);
    if (!same) return std::unexpected(same.error());
    if (*same) return {};
  }
  if (auto cleared = clear(); !cleared) return cleared;
  if (auto allocated = allocate(wholeSize); !allocated) return allocated;
  missing_.clear();
  for (std::int64_t range = 0; range < rangeCount; ++range) missing_.push_back(range);
  return hasTail_ ? writeAt(file_, objectSize_, digest) : Result<void>{};
}

Result<bool> PartialFile::readTail(ByteView digest, std::int64_t rangeCount) {
  Bytes tail(static_cast<std::size_t>(kDigestSize + rangeCount));
  const auto count = pread(file_.get(), tail.data(), tail.size(), objectSize_);
  if (count < 0) return std::unexpected(platform::lastPosixError("read"));
  if (std::cmp_not_equal(count, tail.size())) return false;
  if (!std::ranges::equal(digest, ByteView(tail).first(digest.size()))) return false;
  missing_.clear();
  for (std::int64_t range = 0; range < rangeCount; ++range) {
    if (tail[static_cast<std::size_t>(kDigestSize + range)] != kStored) missing_.push_back(range);
  }
  return true;
}

/// So that a full disk is noticed before anything is downloaded.
Result<void> PartialFile::allocate(std::int64_t size) const {
  if (size == 0) return {};
  int result = -1;
  do {
    result = fallocate(file_.get(), 0, 0, size);
  } while (result != 0 && errno == EINTR);
  if (result != 0 && errno == EOPNOTSUPP) result = ftruncate(file_.get(), size);
  return outcomeOf(result, "make room for the object");
}

Result<void> PartialFile::write(std::int64_t range, ByteView bytes) {
  if (auto written = writeAt(file_, range * rangeSize_, bytes); !written || !hasTail_) {
    return written;
  }
  if (fdatasync(file_.get()) != 0) return std::unexpected(platform::lastPosixError("sync"));
  return writeAt(file_, objectSize_ + kDigestSize + range, {&kStored, 1});
}

Result<void> PartialFile::finish(const fs::path& target, bool replaces, std::int64_t objectSize,
                                 std::optional<FileTime> modified) {
  auto done = outcomeOf(ftruncate(file_.get(), objectSize), "truncate");
  if (done && modified) {
    const auto sinceEpoch = modified->time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const std::array<timespec, 2> times = {
        timespec{.tv_sec = 0, .tv_nsec = UTIME_OMIT},
        timespec{.tv_sec = seconds.count(), .tv_nsec = (sinceEpoch - seconds).count()}};
    done = outcomeOf(futimens(file_.get(), times.data()), "set the modification time");
  }
  if (done) done = outcomeOf(fsync(file_.get()), "sync");
  if (done) done = rename(target, replaces);
  return done ? platform::syncFolder(target.parent_path()) : done;
}

Result<void> PartialFile::rename(const fs::path& target, bool replaces) const {
  const unsigned flags = replaces ? 0 : RENAME_NOREPLACE;
  int result = renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, target.c_str(), flags);
  if (result != 0 && !replaces && errno == EINVAL) {  // A file system that knows no such flag.
    result = link(path_.c_str(), target.c_str());
    if (result == 0) remove();
  }
  return outcomeOf(result, "make the target");
}

void PartialFile::removeBeside(const fs::path& target) {
  PartialFile partial;
  partial.path_ = pathBeside(target);
  partial.file_ = platform::FileDescriptor(
      ::open(partial.path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  const bool isFree = partial.file_ && partial.file_.lockWithin(std::chrono::milliseconds(0)) == 0;
  if (isFree) partial.remove();
}

void PartialFile::remove() const noexcept {
  struct stat file{};
  if (fstat(file_.get(), &file) == 0 && isAt(path_, file)) unlink(path_.c_str());
}

}  // namespace orvane::transport
