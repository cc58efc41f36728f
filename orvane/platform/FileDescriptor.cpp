#include <orvane/platform/FileDescriptor.h>

#include <unistd.h>

namespace orvane::platform {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    close();
    number_ = std::exchange(other.number_, -1);
  }
  return *this;
}

void FileDescriptor::close() noexcept {
  if (number_ >= 0) ::close(std::exchange(number_, -1));
}

}  // namespace orvane::platform
