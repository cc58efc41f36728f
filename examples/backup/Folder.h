#pragma once

#include <orvane/bookkeeping/Date.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace backup {

/// A regular file as it was found.
struct LocalFile {
  std::filesystem::path path;
  std::string name;  ///< Relative to the folder, with "/" between its parts; UTF-8.
  std::int64_t size;
  orvane::Date modified;
};

/// What cannot be backed up, and why.
struct Problem {
  std::string name;
  std::string reason;
};

struct Folder {
  std::vector<LocalFile> files;  ///< Sorted by name.
  std::vector<Problem> problems;
};

/// When a file was last modified; nothing where that cannot be told.
[[nodiscard]] std::optional<orvane::Date> modificationDate(const std::filesystem::path& file);

/// Every regular file below `path`, except in the folder `without`. Symbolic links are not
/// followed, devices and such and unfinished downloads left out.
[[nodiscard]] Folder listFolder(const std::filesystem::path& path,
                                const std::filesystem::path& without);

}  // namespace backup
