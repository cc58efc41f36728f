#pragma once

#include <orvane/platform/host/HostApplication.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace orvane::benchmarks {

inline void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

/// A data folder of the process's own, as long as it lives.
class DataFolder {
 public:
  DataFolder() {
    std::string name =
        (std::filesystem::temp_directory_path() / "orvane-benchmark-XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr, "no temporary folder");
    path_ = name;
    require(HostApplication::configure({.dataDirectory = path_}).has_value(), "configure");
  }
  ~DataFolder() { std::filesystem::remove_all(path_); }
  DataFolder(const DataFolder&) = delete;
  DataFolder& operator=(const DataFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// An asset's identifier, in no order of their numbers.
inline std::string assetIdOf(int number) {
  std::array<char, 64> id{};
  std::snprintf(id.data(), id.size(), "%08X-4B3D-4C5E-9F10-2A3B%08X/L0/001",
                static_cast<unsigned>(number) * 2654435761U, static_cast<unsigned>(number));
  return id.data();
}

}  // namespace orvane::benchmarks
