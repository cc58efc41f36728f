#pragma once

#include <orvane/platform/secrets/SecureStore.h>

#include <filesystem>
#include <utility>

namespace orvane {

/// One file per account in a folder: the secure store of hosts that name no other.
///
/// Only the user may read them: the folder has mode 0700 and is given it back when it was left
/// wider, before anything in it is read or written; the files are written with mode 0600. A folder
/// that belongs to another user, or cannot be given its mode, is refused with a POSIX error; so is
/// reading a file of another user, which `replace` replaces by one of this user. What the mode does
/// not keep out (the administrator, a backup, a stolen disk) the store does not either. A file is
/// replaced as a whole: a crash leaves the former item or the new one.
///
/// The files are like any others: a home folder that is copied to another machine, or that several
/// machines share, brings the items along. Two machines then have the same ones.
///
/// Fails with a POSIX error when the file system does; an account name of more than some 80 bytes
/// may be too long for it.
class FileSecureStore final : public SecureStore {
 public:
  /// `folder` is created when something is stored. Without one (an empty path) every operation
  /// fails with `SecureStoreErrorCode::unavailable`.
  explicit FileSecureStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

  [[nodiscard]] Result<std::optional<Bytes>> read(std::string_view account) override;
  [[nodiscard]] Result<void> replace(std::string_view account, ByteView data) override;

 private:
  std::filesystem::path folder_;
};

}  // namespace orvane
