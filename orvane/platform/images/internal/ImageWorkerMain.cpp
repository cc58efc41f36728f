// The program that decodes images for the library, one at a time, as long as the library's end of
// the socket is open. Everything that an image may do to a decoder ends here.

#include <orvane/platform/files/FileDescriptor.h>
#include <orvane/platform/images/internal/ImageConfinement.h>
#include <orvane/platform/images/internal/ImageDecoder.h>

#include <malloc.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>

namespace orvane::platform {
namespace {

struct Task {
  ImageRequest request;
  FileDescriptor file;
};

/// The next request, or nothing when there will be none.
std::optional<Task> nextTask() {
  ImageRequest request{};
  iovec content{&request, sizeof request};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  msghdr message{};
  message.msg_iov = &content;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  if (recvmsg(kWorkerSocket, &message, MSG_CMSG_CLOEXEC) != ssize_t{sizeof request})
    return std::nullopt;
  const cmsghdr* const header = CMSG_FIRSTHDR(&message);
  if (header == nullptr) return std::nullopt;
  int file = -1;
  std::memcpy(&file, CMSG_DATA(header), sizeof file);
  return Task{request, FileDescriptor(file)};
}

void send(const void* bytes, std::size_t count) {
  const auto* rest = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t sent = ::send(kWorkerSocket, rest, count, MSG_NOSIGNAL);
    if (sent <= 0) std::_Exit(EXIT_FAILURE);
    rest += sent;
    count -= static_cast<std::size_t>(sent);
  }
}

/// Whether the library's process ended too early for this one to be ended with it.
bool isAbandoned() {
  pollfd state{.fd = kWorkerSocket, .events = 0, .revents = 0};
  return poll(&state, 1, 0) == 1;
}

int work() {
  limitResources();
  if (isAbandoned() || !startDecoders()) return EXIT_FAILURE;
  confine();
  const ImageReply ready{};
  send(&ready, sizeof ready);
  while (auto task = nextTask()) {
    const auto image = decodeImage(task->file.get(), task->request);
    task->file.close();
    const ImageReply reply = image ? ImageReply{image->width, image->height, ImageProblem::none}
                                   : ImageReply{0, 0, image.error()};
    send(&reply, sizeof reply);
    if (image) send(image->pixels.data(), image->pixels.size());
    malloc_trim(0);
  }
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace orvane::platform

int main() { std::_Exit(orvane::platform::work()); }
