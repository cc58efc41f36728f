#pragma once

#include <fstream>
#include <stdexcept>
#include <string>

namespace orvane::testing {

/// Whether figures of memory say what the program does; sanitizers keep memory of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kMemoryIsTheProgramsOwn = false;
#else
inline constexpr bool kMemoryIsTheProgramsOwn = true;
#endif

/// A figure of /proc/self/status in KiB, for example "VmData".
[[nodiscard]] inline long memoryFigure(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  }
  throw std::runtime_error("no figure named " + name);
}

/// By how much the memory of this process grows from here on. Meant for a process of its own: what
/// it has held and returned before counts towards the peak.
class MemoryGrowth {
 public:
  /// From what was held at the beginning to the peak.
  [[nodiscard]] long kibibytes() const { return memoryFigure("VmHWM") - before_; }
  /// From what was held at the beginning to what is held now.
  [[nodiscard]] long kibibytesLeft() const { return memoryFigure("VmRSS") - before_; }

 private:
  long before_ = memoryFigure("VmRSS");
};

}  // namespace orvane::testing
