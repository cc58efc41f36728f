#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/base/Md5.h>
#include <orvane/platform/files/FileReader.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace orvane::transport {

/// The MD5 sums of a file's consecutive pieces, made step by step, so that whoever waits for those
/// of a large file can give up between two steps.
class FileSums {
 public:
  FileSums(std::filesystem::path file, std::vector<std::int64_t> sizes)
      : path_(std::move(file)), sizes_(std::move(sizes)) {}

  /// Reads on, 8 MiB at most; false once every piece has its sum. Fails with a POSIX error, or with
  /// `fileReadError` where the file is shorter than its pieces. Blocks on the disk.
  [[nodiscard]] Result<bool> step();

  /// In hexadecimal digits.
  [[nodiscard]] const std::vector<std::string>& sums() const noexcept { return sums_; }

 private:
  std::filesystem::path path_;
  std::vector<std::int64_t> sizes_;
  std::optional<platform::FileReader> reader_;
  Bytes buffer_;
  platform::Md5 sum_;
  std::int64_t done_ = 0;  ///< Bytes in `sum_`.
  std::vector<std::string> sums_;
};

}  // namespace orvane::transport
