#pragma once

#include <algorithm>
#include <cstddef>

namespace orvane::internal {

/// Asks the processor to fetch memory (of a larger piece, its beginning) that is going to be read
/// some hundred instructions from now, so that nothing waits for it then.
inline void prefetch(const void* memory, std::size_t size = 1) {
  constexpr std::size_t kCacheLine = 64;
  constexpr std::size_t kMost = 4 * kCacheLine;
  const auto* const bytes = static_cast<const std::byte*>(memory);
  for (std::size_t i = 0; i < std::min(size, kMost); i += kCacheLine) __builtin_prefetch(bytes + i);
}

}  // namespace orvane::internal
