#pragma once

#include <orvane/Error.h>
#include <orvane/platform/files/FileDescriptor.h>

#include <filesystem>
#include <string>

namespace backup {

/// Where one file of a folder belongs. Holds its folder open, so that nobody can put a symbolic
/// link into the way of what is written there.
struct Place {
  orvane::platform::FileDescriptor folder;
  std::string file;  ///< Its name in that folder.

  /// Valid in this process, as long as the place is there.
  [[nodiscard]] std::filesystem::path path() const;
};

/// The place for a name with "/" between its parts, below `root`; missing folders are made. Refuses
/// names that lead elsewhere ("..", "/etc/passwd", a part that is empty or a symbolic link), since
/// a store may hold any.
[[nodiscard]] orvane::Result<Place> placeFor(const std::string& name,
                                             const orvane::platform::FileDescriptor& root);

}  // namespace backup
