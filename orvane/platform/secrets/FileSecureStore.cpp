#include <orvane/platform/secrets/FileSecureStore.h>

#include <orvane/platform/base/PercentEncoding.h>
#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/files/AtomicFile.h>
#include <orvane/platform/files/FileReader.h>
#include <orvane/platform/files/FolderOperations.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace orvane {
namespace {

namespace fs = std::filesystem;

/// No separator, and no ".", which could make a name special or that of a temporary file.
constexpr platform::CharacterSet kFileNameAllowed =
    platform::kUrlUnreserved - platform::CharacterSet(".~");

Error noFolder() {
  return SecureStore::error(SecureStoreErrorCode::unavailable, "the host has no data folder");
}

fs::path fileOf(const fs::path& folder, std::string_view account) {
  return folder / (platform::percentEncode(account, kFileNameAllowed) + ".secret");
}

/// What belongs to another user may be read or exchanged by that user at any time.
Result<void> requireOwnUser(const struct stat& status) {
  if (status.st_uid == ::geteuid()) return {};
  return std::unexpected(platform::posixError(EPERM, "use what belongs to another user"));
}

/// Shuts others out of a folder that was left open to them.
Result<void> makePrivate(const fs::path& folder) {
  struct stat status{};
  // The next step says what is wrong. What is no folder, a device even, is not ours to change.
  if (::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return {};
  if (auto isOwn = requireOwnUser(status); !isOwn) return isOwn;
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return {};
  if (::chmod(folder.c_str(), S_IRWXU) == 0) return {};
  return std::unexpected(platform::lastPosixError("close the folder to others"));
}

}  // namespace

Result<std::optional<Bytes>> FileSecureStore::read(std::string_view account) {
  if (folder_.empty()) return std::unexpected(noFolder());
  if (auto closed = makePrivate(folder_); !closed) return std::unexpected(closed.error());
  const auto file = fileOf(folder_, account);
  struct stat status{};
  if (::lstat(file.c_str(), &status) == 0) {
    if (auto isOwn = requireOwnUser(status); !isOwn) return std::unexpected(isOwn.error());
  }
  const auto content = platform::readWholeFile(file);
  if (content) return Bytes(content->view().begin(), content->view().end());
  if (content.error().code() == ENOENT) return std::nullopt;
  return std::unexpected(content.error());
}

Result<void> FileSecureStore::replace(std::string_view account, ByteView data) {
  if (folder_.empty()) return std::unexpected(noFolder());
  if (auto created = platform::createPrivateFolders(folder_); !created) return created;
  if (auto closed = makePrivate(folder_); !closed) return closed;
  auto file = platform::AtomicFile::create(fileOf(folder_, account));
  if (!file) return std::unexpected(file.error());
  if (auto written = file->append(data); !written) return written;
  return file->commit();
}

}  // namespace orvane
