#pragma once

#include <orvane/Error.h>
#include <orvane/platform/files/AtomicFile.h>

#include <simdjson.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <utility>

namespace orvane::platform {

/// One file that is read once and from then on only replaced.
///
/// Its folder is created, with what is missing above it, at every use. Without a path nothing is
/// read or written. Failures are not reported: a file that cannot be read counts as missing, and
/// one that cannot be written keeps its content.
///
/// A file that was found but is of no use is kept: just before it is replaced for the first time it
/// is renamed to "<name>.undecodable" (and a number, when that is taken). As long as that fails it
/// is not replaced.
///
/// One thread at a time; every call blocks on the disk.
class JsonFile {
 public:
  explicit JsonFile(std::optional<std::filesystem::path> path) : path_(std::move(path)) {}

  /// The whole content, or nothing.
  [[nodiscard]] std::optional<simdjson::padded_string> read();

  /// Call when the content cannot be decoded: the next `replace` preserves the present file first.
  void setUndecodable() { mustPreserve_ = true; }

  /// Replaces the file by what `write` appends; not if that returns false.
  void replace(const std::function<bool(AtomicFile&)>& write);

  /// Deletes the file.
  void remove();

 private:
  /// Whether there is a path; its folder exists then, or cannot be made.
  [[nodiscard]] bool prepareFolder() const;

  std::optional<std::filesystem::path> path_;
  bool mustPreserve_ = false;
};

}  // namespace orvane::platform
