#pragma once

#include <string>

namespace orvane::testing {

/// Whether figures of memory say what the program does; sanitizers keep memory of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kMemoryIsTheProgramsOwn = false;
#else
inline constexpr bool kMemoryIsTheProgramsOwn = true;
#endif

/// A figure of /proc/self/status in KiB, for example "VmData".
[[nodiscard]] long memoryFigure(const std::string& name);

/// By how much the memory of this process grows from here on. Meant for a process of its own: what
/// it has held and returned before counts towards the peak.
class MemoryGrowth {
 public:
  MemoryGrowth();
  /// From what was held at the beginning to the peak.
  [[nodiscard]] long kibibytes() const;
  /// From what was held at the beginning to what is held now.
  [[nodiscard]] long kibibytesLeft() const;

 private:
  long before_;
};

}  // namespace orvane::testing
