#include "support/SystemCalls.h"

#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <utility>

namespace orvane::testing {
namespace {

using SendHook = std::function<void(Moment, int, std::string_view)>;

struct Hooks {
  std::mutex mutex;
  std::shared_ptr<SendHook> aroundSend;
  Lookup lookup;
  std::vector<std::string> fileCalls;
};

Hooks& hooks() {
  static auto& hooks = *new Hooks;
  return hooks;
}

std::vector<std::string> addressesOf(const char* name) {
  const std::lock_guard lock(hooks().mutex);
  if (!hooks().lookup || name == nullptr) return {};
  return hooks().lookup(name);
}

void recordFileCall(std::string call) {
  const std::lock_guard lock(hooks().mutex);
  hooks().fileCalls.push_back(std::move(call));
}

std::string nameOf(const std::filesystem::path& path) { return path.filename().string(); }

}  // namespace

void aroundSend(SendHook hook) {
  const std::lock_guard lock(hooks().mutex);
  hooks().aroundSend = hook ? std::make_shared<SendHook>(std::move(hook)) : nullptr;
}

void setLookup(Lookup lookup) {
  const std::lock_guard lock(hooks().mutex);
  hooks().lookup = std::move(lookup);
}

std::vector<std::string> takeFileCalls() {
  const std::lock_guard lock(hooks().mutex);
  return std::exchange(hooks().fileCalls, {});
}

static void recordSync(int file) {
  struct stat status{};
  std::error_code ignored;
  const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file), ignored);
  const bool isEmpty =
      ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0;
  recordFileCall("sync " + nameOf(path) + (isEmpty ? " empty" : ""));
}

static void recordRename(const char* from, const char* to) {
  recordFileCall("rename " + nameOf(from) + ' ' + nameOf(to));
}

}  // namespace orvane::testing

// The program's own definitions come before those of the C library.

extern "C" __attribute__((visibility("default"))) ssize_t send(int socket, const void* data,
                                                               size_t size, int flags) {
  using orvane::testing::Moment;
  std::shared_ptr<orvane::testing::SendHook> hook;
  {
    auto& hooks = orvane::testing::hooks();
    const std::lock_guard lock(hooks.mutex);
    hook = hooks.aroundSend;
  }
  const std::string_view bytes(static_cast<const char*>(data), size);
  if (hook) (*hook)(Moment::before, socket, bytes);
  const auto sent = syscall(SYS_sendto, socket, data, size, flags, nullptr, 0);
  const int error = errno;
  if (hook) (*hook)(Moment::after, socket, bytes);
  errno = error;
  return sent;
}

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** found) {
  static const auto real =
      reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  const auto addresses = orvane::testing::addressesOf(name);
  if (addresses.empty()) return real(name, service, hints, found);
  for (const auto& address : addresses) {
    const int status = real(address.c_str(), service, hints, found);
    if (status != 0) return status;
    while (*found != nullptr) found = &(*found)->ai_next;
  }
  return 0;
}

extern "C" __attribute__((visibility("default"))) int fsync(int file) {
  orvane::testing::recordSync(file);
  return static_cast<int>(syscall(SYS_fsync, file));
}

extern "C" __attribute__((visibility("default"))) int rename(const char* from, const char* to) {
  orvane::testing::recordRename(from, to);
  return static_cast<int>(syscall(SYS_rename, from, to));
}
