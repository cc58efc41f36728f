#pragma once

#include <orvane/platform/FileDescriptor.h>

#include <filesystem>

namespace orvane::platform {

/// Waits until no other process and no other call holds the lock of `folder`, which is created if
/// it is not there. The lock is held for as long as the result lives. Without a folder, or on a
/// file system without locks, nobody is kept waiting.
[[nodiscard]] FileDescriptor lockFolder(const std::filesystem::path& folder);

}  // namespace orvane::platform
