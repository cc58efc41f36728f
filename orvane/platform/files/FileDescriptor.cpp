#include <orvane/platform/files/FileDescriptor.h>

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

namespace orvane::platform {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    close();
    number_ = std::exchange(other.number_, -1);
  }
  return *this;
}

int FileDescriptor::lockWithin(std::chrono::milliseconds limit) const {
  // Others hold a lock for milliseconds at most times.
  constexpr std::chrono::milliseconds kPause{2};
  const auto end = std::chrono::steady_clock::now() + limit;
  while (::flock(number_, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return errno;
    if (std::chrono::steady_clock::now() >= end) return EWOULDBLOCK;
    std::this_thread::sleep_for(kPause);
  }
  return 0;
}

void FileDescriptor::close() noexcept {
  if (number_ >= 0) ::close(std::exchange(number_, -1));
}

}  // namespace orvane::platform
