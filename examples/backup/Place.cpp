#include "Place.h"

#include <orvane/platform/base/PosixError.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ranges>
#include <string_view>
#include <utility>
#include <vector>

namespace backup {
namespace {

using orvane::platform::FileDescriptor;
using orvane::platform::lastPosixError;
using orvane::platform::posixError;

bool isOrdinary(std::string_view part) {
  return !part.empty() && part != "." && part != ".." && !part.contains('\0');
}

/// The folder `name` in another one, made if it is not there.
orvane::Result<FileDescriptor> subfolder(const FileDescriptor& folder, const std::string& name) {
  constexpr mode_t kAsUsual = 0777;
  if (mkdirat(folder.get(), name.c_str(), kAsUsual) != 0 && errno != EEXIST) {
    return std::unexpected(lastPosixError("make a folder"));
  }
  FileDescriptor opened(
      openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!opened) return std::unexpected(lastPosixError("open a folder on the way"));
  return opened;
}

}  // namespace

std::filesystem::path Place::path() const {
  return "/proc/self/fd/" + std::to_string(folder.get()) + "/" + file;
}

orvane::Result<Place> placeFor(const std::string& name, const FileDescriptor& root) {
  std::vector<std::string> parts;
  for (const auto part : std::views::split(name, '/')) parts.emplace_back(part.begin(), part.end());
  if (parts.empty() || !std::ranges::all_of(parts, isOrdinary)) {
    return std::unexpected(posixError(EINVAL, "take such a name for a file"));
  }
  Place place{.folder = FileDescriptor(fcntl(root.get(), F_DUPFD_CLOEXEC, 0)),
              .file = parts.back()};
  if (!place.folder) return std::unexpected(lastPosixError("open the folder"));
  parts.pop_back();
  for (const auto& part : parts) {
    auto folder = subfolder(place.folder, part);
    if (!folder) return std::unexpected(std::move(folder.error()));
    place.folder = std::move(*folder);
  }
  return place;
}

}  // namespace backup
