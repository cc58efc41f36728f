#include <orvane/platform/base/Helpers.h>

#include <orvane/platform/base/internal/HelperPlace.h>

#include <dlfcn.h>

#include <expected>
#include <mutex>
#include <utility>

namespace orvane::platform {
namespace {

struct Place {
  std::mutex mutex;
  std::filesystem::path folder = kHelperPlace;
};

Place& place() {
  // Never destroyed: other threads may still ask while the process exits.
  static auto& instance = *new Place;
  return instance;
}

}  // namespace

std::filesystem::path helperFolder() {
  auto& current = place();
  const std::lock_guard lock(current.mutex);
  return current.folder;
}

void setHelperFolder(std::filesystem::path folder) {
  auto& current = place();
  const std::lock_guard lock(current.mutex);
  current.folder = std::move(folder);
}

std::expected<const void*, std::string> symbolOfModule(const std::string& module,
                                                       const char* symbol) {
  const auto file = helperFolder() / (module + ".so");
  void* const loaded = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  const void* const found = loaded == nullptr ? nullptr : dlsym(loaded, symbol);
  if (found != nullptr) return found;
  const char* const problem = dlerror();
  return std::unexpected(problem == nullptr ? file.string() + " is not a module of the engine"
                                            : std::string(problem));
}

}  // namespace orvane::platform
