#pragma once

#include <cstddef>
#include <memory>

namespace orvane::platform {

/// So many bytes (1 or more), all 0, straight from the system. They go back to it with the last
/// owner, while an allocator may keep blocks of megabytes for the life of the process. Null when
/// there is no room for them. Any thread may call it.
[[nodiscard]] std::shared_ptr<std::byte[]> mappedMemory(std::size_t size) noexcept;

}  // namespace orvane::platform
