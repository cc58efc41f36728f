#include "Folder.h"

#include <orvane/platform/Utf8.h>

#include <algorithm>
#include <chrono>
#include <system_error>

namespace backup {
namespace {

namespace fs = std::filesystem;

void addFile(const fs::directory_entry& entry, std::string name, Folder& folder) {
  // Object keys and records are UTF-8; file names are any bytes.
  if (!orvane::platform::isUtf8(name)) {
    return folder.problems.push_back({std::move(name), "the name is not UTF-8"});
  }
  std::error_code error;
  const auto size = entry.file_size(error);
  const auto modified = error ? fs::file_time_type() : entry.last_write_time(error);
  if (error) return folder.problems.push_back({std::move(name), error.message()});
  const auto time = std::chrono::time_point_cast<orvane::Date::TimePoint::duration>(
      std::chrono::file_clock::to_sys(modified));
  folder.files.push_back(
      {entry.path(), std::move(name), static_cast<std::int64_t>(size), orvane::Date::from(time)});
}

void addEntries(const fs::path& path, const std::string& prefix, Folder& folder) {
  std::error_code error;
  fs::directory_iterator entry(path, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code unknown;
    const auto type = entry->symlink_status(unknown).type();
    std::string name = prefix + entry->path().filename().string();
    if (type == fs::file_type::directory) addEntries(entry->path(), name + "/", folder);
    if (type == fs::file_type::regular) addFile(*entry, std::move(name), folder);
  }
  if (error) folder.problems.push_back({prefix.empty() ? "." : prefix, error.message()});
}

}  // namespace

Folder listFolder(const fs::path& path) {
  Folder folder;
  addEntries(path, "", folder);
  std::ranges::sort(folder.files, {}, &LocalFile::name);
  return folder;
}

}  // namespace backup
