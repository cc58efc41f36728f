#include <orvane/platform/images/internal/ImageWorker.h>

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/ProcessExit.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <utility>

extern "C" {  // glibc 2.36 forgets to say so.
#include <sys/pidfd.h>
}

namespace orvane::platform {
namespace {

using std::chrono::milliseconds;

/// How often a wait for the worker looks whether the process exits, which must not wait for it.
constexpr milliseconds kExitCheck{100};

/// Spawns the program with `socket` as its standard input and nothing else of this process.
int spawn(const std::string& program, int socket, pid_t& process) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, socket, STDIN_FILENO);
  // Some codecs print what they think of an image.
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigfillset(&signals);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::string name = "orvane-image-worker";
  std::array<char*, 2> arguments{name.data(), nullptr};
  std::array<char*, 1> environment{nullptr};
  const int problem = posix_spawn(&process, program.c_str(), &files, &attributes, arguments.data(),
                                  environment.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return problem;
}

/// Sends the request with the descriptor of the file.
bool sendRequest(int socket, const ImageRequest& request, int file) {
  ImageRequest bytes = request;
  iovec content{&bytes, sizeof bytes};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof file)> control{};
  msghdr message{};
  message.msg_iov = &content;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof file);
  std::memcpy(CMSG_DATA(header), &file, sizeof file);
  return sendmsg(socket, &message, MSG_NOSIGNAL) == ssize_t{sizeof bytes};
}

bool fits(const ImageReply& reply, const ImageRequest& request) {
  const bool isWithin = reply.width >= 1 && reply.width <= request.width && reply.height >= 1 &&
                        reply.height <= request.height;
  return reply.problem == ImageProblem::none
             ? isWithin
             : reply.problem > ImageProblem::none && reply.problem <= ImageProblem::crashed;
}

}  // namespace

Result<ImageWorker> ImageWorker::start(const std::filesystem::path& program) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    return std::unexpected(lastPosixError(program.string()));
  }
  FileDescriptor ours(ends[0]);
  const FileDescriptor theirs(ends[1]);
  pid_t process = -1;
  if (const int problem = spawn(program.string(), theirs.get(), process); problem != 0) {
    return std::unexpected(posixError(problem, program.string()));
  }
  FileDescriptor handle(pidfd_open(process, 0));
  if (!handle) {
    const auto error = lastPosixError(program.string());
    ours.close();  // That ends it.
    waitpid(process, nullptr, 0);
    return std::unexpected(error);
  }
  return ImageWorker(std::move(ours), std::move(handle));
}

ImageWorker::ImageWorker(FileDescriptor socket, FileDescriptor process)
    : socket_(std::move(socket)), process_(std::move(process)), owner_(getpid()) {}

ImageWorker::~ImageWorker() {
  if (process_ && owner_ == getpid()) stop();
}

bool ImageWorker::isReady() const {
  pollfd state{.fd = socket_.get(), .events = POLLIN, .revents = 0};
  return process_ && owner_ == getpid() && poll(&state, 1, 0) == 0;
}

std::expected<RgbImage, ImageProblem> ImageWorker::decode(int file, const ImageRequest& request,
                                                          Clock::time_point deadline) {
  ImageReply reply{};
  RgbImage image;
  bool complete = sendRequest(socket_.get(), request, file) &&
                  receive(&reply, sizeof reply, deadline) && fits(reply, request);
  if (complete && reply.problem != ImageProblem::none) return std::unexpected(reply.problem);
  if (complete) {
    image.width = reply.width;
    image.height = reply.height;
    image.pixels.resize(std::size_t{3} * static_cast<std::size_t>(reply.width) *
                        static_cast<std::size_t>(reply.height));
    complete = receive(image.pixels.data(), image.pixels.size(), deadline);
  }
  if (complete) return image;
  const bool isLate = Clock::now() >= deadline;
  const int status = stop();
  if (isLate) return std::unexpected(ImageProblem::tooSlow);
  return std::unexpected(status == kOutOfMemoryStatus ? ImageProblem::tooMuchMemory
                                                      : ImageProblem::crashed);
}

bool ImageWorker::receive(void* bytes, std::size_t count, Clock::time_point deadline) {
  auto* rest = static_cast<char*>(bytes);
  while (count > 0) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (left <= milliseconds::zero() || ProcessExit::hasBegun()) return false;
    pollfd state{.fd = socket_.get(), .events = POLLIN, .revents = 0};
    const int ready = poll(&state, 1, static_cast<int>(std::min(left, kExitCheck).count()));
    if (ready < 0 && errno != EINTR) return false;
    if (ready <= 0) continue;
    const ssize_t got = recv(socket_.get(), rest, count, MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) return false;
    if (got <= 0) continue;
    rest += got;
    count -= static_cast<std::size_t>(got);
  }
  return true;
}

int ImageWorker::stop() {
  siginfo_t end{};
  // Where it is ending by itself already, this changes nothing about its status.
  pidfd_send_signal(process_.get(), SIGKILL, nullptr, 0);
  const auto handle = static_cast<id_t>(process_.get());
  while (waitid(P_PIDFD, handle, &end, WEXITED) != 0 && errno == EINTR) {
  }
  process_.close();
  return end.si_code == CLD_EXITED ? end.si_status : -1;
}

}  // namespace orvane::platform
