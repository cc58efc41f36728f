#include "Folder.h"

#include <orvane/platform/base/Utf8.h>
#include <orvane/transport/ObjectDownloader.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>

namespace backup {
namespace {

namespace fs = std::filesystem;

orvane::Date dateOf(const struct stat& file) {
  // The clocks of the standard library end in 2262.
  const std::chrono::duration<double> rest = std::chrono::nanoseconds(file.st_mtim.tv_nsec);
  const auto seconds = file.st_mtim.tv_sec - orvane::Date::kReferenceDate;
  return {static_cast<double>(seconds) + rest.count()};
}

void addFile(const fs::directory_entry& entry, std::string name, Folder& folder) {
  // Object keys and records are UTF-8; file names are any bytes.
  if (!orvane::platform::isUtf8(name)) {
    return folder.problems.push_back({std::move(name), "the name is not UTF-8"});
  }
  struct stat file{};
  if (::stat(entry.path().c_str(), &file) != 0) {
    return folder.problems.push_back({std::move(name), std::generic_category().message(errno)});
  }
  folder.files.push_back({entry.path(), std::move(name), file.st_size, dateOf(file)});
}

void addEntries(const fs::path& path, const std::string& prefix, const fs::path& without,
                Folder& folder) {
  std::error_code error;
  if (fs::equivalent(path, without, error)) return;
  fs::directory_iterator entry(path, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code unknown;
    const auto type = entry->symlink_status(unknown).type();
    std::string name = prefix + entry->path().filename().string();
    if (type == fs::file_type::directory) {
      addEntries(entry->path(), name + "/", without, folder);
    }
    if (orvane::ObjectDownloader::isUnfinished(entry->path())) continue;
    if (type == fs::file_type::regular) addFile(*entry, std::move(name), folder);
  }
  if (error) folder.problems.push_back({prefix.empty() ? "." : prefix, error.message()});
}

}  // namespace

std::optional<orvane::Date> modificationDate(const fs::path& path) {
  struct stat file{};
  if (::stat(path.c_str(), &file) != 0) return std::nullopt;
  return dateOf(file);
}

Folder listFolder(const fs::path& path, const fs::path& without) {
  Folder folder;
  addEntries(path, "", without, folder);
  std::ranges::sort(folder.files, {}, &LocalFile::name);
  return folder;
}

}  // namespace backup
