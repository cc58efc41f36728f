#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/files/FileDescriptor.h>

#include <filesystem>

namespace orvane::platform {

/// Replaces a file as a whole: a reader finds the old or the new content, also after a crash.
///
/// The content goes into a temporary file of mode 0600 in the same folder, which is synced to the
/// disk, renamed over the target, and followed by a sync of the folder. Writers of one target do
/// not wait for each other: each has a temporary file of its own (".<name>.tmp", then
/// ".<name>.tmp-2" and so on), locked while in use, and the last `commit` counts. Only on a file
/// system without locks two writers may get the same one. What a killed writer has left is used or
/// removed by a later one; what another user has left is removed where the folder allows it, and a
/// writer whose file is removed meanwhile fails to commit with ESTALE.
///
/// One thread at a time; every call may block on the disk.
///
///     auto file = AtomicFile::create(path);
///     if (!file || !file->append(bytes) || !file->commit()) ...   // the old content is untouched
class AtomicFile {
 public:
  /// Prepares to replace `target`, whose folder must exist. Fails with a POSIX error.
  [[nodiscard]] static Result<AtomicFile> create(const std::filesystem::path& target);

  AtomicFile(AtomicFile&&) noexcept = default;
  AtomicFile& operator=(AtomicFile&&) noexcept = delete;
  /// Without a successful `commit` the target keeps its former content.
  ~AtomicFile();

  /// Adds bytes at the end. Fails with a POSIX error, after which only destruction makes sense.
  [[nodiscard]] Result<void> append(ByteView bytes);

  /// Makes the new content the file's content; once it returns, a power cut cannot undo it.
  /// Fails with a POSIX error; before the rename that leaves the former content in place.
  [[nodiscard]] Result<void> commit();

 private:
  AtomicFile(std::filesystem::path target, std::filesystem::path temporary, FileDescriptor file);
  [[nodiscard]] Result<void> flush();
  [[nodiscard]] Result<void> writeAll(ByteView bytes);

  std::filesystem::path target_;
  std::filesystem::path temporary_;
  FileDescriptor file_;
  Bytes buffer_;
};

}  // namespace orvane::platform
