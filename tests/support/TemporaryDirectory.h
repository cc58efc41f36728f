#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace orvane::testing {

/// A new folder that is removed with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

/// The folder of this test's process; every XDG directory lies in it. Children inherit it.
[[nodiscard]] std::filesystem::path testDirectory();

void writeFile(const std::filesystem::path& path, std::string_view content);
[[nodiscard]] std::string readFile(const std::filesystem::path& path);

}  // namespace orvane::testing
