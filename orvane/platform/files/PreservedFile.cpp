#include <orvane/platform/files/PreservedFile.h>

#include <orvane/platform/base/PosixError.h>

#include <string>
#include <system_error>

namespace orvane::platform {

Result<std::filesystem::path> preserveFile(const std::filesystem::path& file,
                                           std::string_view suffix) {
  namespace fs = std::filesystem;
  const std::string name = file.string().append(suffix);
  fs::path kept = name;
  std::error_code error;
  for (int number = 2; fs::exists(fs::symlink_status(kept, error)); ++number) {
    kept = name + "-" + std::to_string(number);
  }
  fs::rename(file, kept, error);
  if (error) return std::unexpected(posixError(error.value(), "keep aside"));
  return kept;
}

}  // namespace orvane::platform
