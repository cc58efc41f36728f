#pragma once

#include <orvane/Error.h>

#include <filesystem>

namespace orvane::platform {

/// Creates `folder` and the missing ones above it, for this user alone (mode 0700). Folders that
/// exist stay as they are. Fails with a POSIX error.
[[nodiscard]] Result<void> createPrivateDirectories(const std::filesystem::path& folder);

}  // namespace orvane::platform
