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
using Clock = std::chrono::steady_clock;

/// A look at the clock this much later than the one before means that this process was stopped.
constexpr std::chrono::seconds kStopped{1};

/// How long a killed worker is waited for. One that the kernel cannot end yet must not hold a
/// thread.
constexpr milliseconds kEndLimit{5000};

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
  sigfillset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
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

/// Sends the request with the descriptor of the file. A worker that waits for it has room for it.
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
  return sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT) == ssize_t{sizeof bytes};
}

bool isPossible(const ImageReply& reply, const ImageRequest& request) {
  if (reply.problem != ImageProblem::none) {
    return reply.problem > ImageProblem::none && reply.problem <= ImageProblem::crashed;
  }
  if (request.fit != ImageFit::inside) {
    return reply.width == request.width && reply.height == request.height;
  }
  return reply.width >= 1 && reply.width <= request.width && reply.height >= 1 &&
         reply.height <= request.height;
}

}  // namespace

TimeLeft::TimeLeft(milliseconds limit) : seen_(Clock::now()), deadline_(seen_ + limit) {}

milliseconds TimeLeft::left() {
  const auto now = Clock::now();
  if (now - seen_ > kStopped) deadline_ += now - seen_;
  seen_ = now;
  return std::chrono::ceil<milliseconds>(deadline_ - now);
}

Result<ImageWorker> ImageWorker::start(const std::filesystem::path& program) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    return std::unexpected(lastPosixError(program.string()));
  }
  FileDescriptor ours(ends[0]);
  FileDescriptor theirs(ends[1]);
  pid_t process = -1;
  if (const int problem = spawn(program.string(), theirs.get(), process); problem != 0) {
    return std::unexpected(posixError(problem, program.string()));
  }
  theirs.close();  // So that the worker's end is seen.
  FileDescriptor handle(pidfd_open(process, 0));
  if (!handle) {
    const auto error = lastPosixError(program.string());
    ours.close();  // That ends it.
    waitpid(process, nullptr, 0);
    return std::unexpected(error);
  }
  ImageWorker worker(std::move(ours), std::move(handle));
  TimeLeft time(kImageTimeLimit);
  ImageReply reply{};
  if (worker.receive(&reply, sizeof reply, time) && reply.problem == ImageProblem::none) {
    return worker;
  }
  if (ProcessExit::hasBegun()) return std::unexpected(ProcessExit::error());
  const auto* const what =
      time.left() > milliseconds::zero() ? " ended before it was ready" : " does not get ready";
  return std::unexpected(Error(Error::kPosix, ENOEXEC, program.string() + what));
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
                                                          milliseconds limit) {
  TimeLeft time(limit);
  ImageReply reply{.width = 0, .height = 0, .problem = ImageProblem::crashed};
  RgbImage image;
  bool complete = sendRequest(socket_.get(), request, file) &&
                  receive(&reply, sizeof reply, time) && isPossible(reply, request);
  if (complete && reply.problem == ImageProblem::none) {
    image.width = reply.width;
    image.height = reply.height;
    image.pixels.resize(std::size_t{3} * static_cast<std::size_t>(reply.width) *
                        static_cast<std::size_t>(reply.height));
    complete = receive(image.pixels.data(), image.pixels.size(), time);
    if (complete) return image;
  }
  if (!complete) {
    const bool isLate = time.left() <= milliseconds::zero();
    reply.problem = isLate ? ImageProblem::tooSlow : ImageProblem::crashed;
  }
  if (reply.problem >= ImageProblem::tooSlow) stop();
  return std::unexpected(reply.problem);
}

bool ImageWorker::receive(void* bytes, std::size_t count, TimeLeft& time) {
  auto* rest = static_cast<char*>(bytes);
  while (count > 0) {
    const auto left = time.left();
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

void ImageWorker::stop() {
  pidfd_send_signal(process_.get(), SIGKILL, nullptr, 0);
  pollfd state{.fd = process_.get(), .events = POLLIN, .revents = 0};
  while (poll(&state, 1, static_cast<int>(kEndLimit.count())) < 0 && errno == EINTR) {
  }
  waitid(P_PIDFD, static_cast<id_t>(process_.get()), nullptr, WEXITED | WNOHANG);
  process_.close();
}

}  // namespace orvane::platform
