#include "support/MemoryGrowth.h"

#include <fstream>
#include <stdexcept>

namespace orvane::testing {

long memoryFigure(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  }
  throw std::runtime_error("no figure named " + name);
}

MemoryGrowth::MemoryGrowth() : before_(memoryFigure("VmRSS")) {}

long MemoryGrowth::kibibytes() const { return memoryFigure("VmHWM") - before_; }

long MemoryGrowth::kibibytesLeft() const { return memoryFigure("VmRSS") - before_; }

}  // namespace orvane::testing
