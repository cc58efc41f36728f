#pragma once

#include <orvane/Error.h>

#include <filesystem>

namespace orvane::platform {

/// Creates `folder` and the missing ones above it, for this user alone (mode 0700), and makes their
/// names durable as far as the file system can. Folders that exist stay as they are. Fails with a
/// POSIX error.
[[nodiscard]] Result<void> createPrivateFolders(const std::filesystem::path& folder);

/// Puts on the disk which names `folder` (the working directory when empty) holds. Fails with a
/// POSIX error.
[[nodiscard]] Result<void> syncFolder(const std::filesystem::path& folder);

}  // namespace orvane::platform
