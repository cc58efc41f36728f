#include "support/SystemCalls.h"

#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace orvane::testing {
namespace {

struct Hooks {
  std::mutex mutex;
  std::shared_ptr<std::function<void(std::string_view)>> beforeSend;
  std::function<void()> beforeLookup;
  std::map<std::string, std::vector<std::string>, std::less<>> addresses;
};

Hooks& hooks() {
  static auto& hooks = *new Hooks;
  return hooks;
}

std::vector<std::string> addressesOf(const char* name) {
  const std::lock_guard lock(hooks().mutex);
  if (hooks().beforeLookup) hooks().beforeLookup();
  const auto found = hooks().addresses.find(name == nullptr ? "" : name);
  return found == hooks().addresses.end() ? std::vector<std::string>() : found->second;
}

}  // namespace

void beforeSend(std::function<void(std::string_view)> hook) {
  const std::lock_guard lock(hooks().mutex);
  hooks().beforeSend = std::make_shared<decltype(hook)>(std::move(hook));
}

void beforeLookup(std::function<void()> hook) {
  const std::lock_guard lock(hooks().mutex);
  hooks().beforeLookup = std::move(hook);
}

void setAddresses(const std::string& name, const std::vector<std::string>& addresses) {
  const std::lock_guard lock(hooks().mutex);
  hooks().addresses[name] = addresses;
}

}  // namespace orvane::testing

// The program's own definitions come before those of the C library.

extern "C" __attribute__((visibility("default"))) ssize_t send(int socket, const void* data,
                                                               size_t size, int flags) {
  std::shared_ptr<std::function<void(std::string_view)>> hook;
  {
    auto& hooks = orvane::testing::hooks();
    const std::lock_guard lock(hooks.mutex);
    hook = hooks.beforeSend;
  }
  if (hook && *hook) (*hook)({static_cast<const char*>(data), size});
  return syscall(SYS_sendto, socket, data, size, flags, nullptr, 0);
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
