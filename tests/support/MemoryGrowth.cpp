#include "support/MemoryGrowth.h"

#include <fstream>
#include <stdexcept>
#include <string>

namespace orvane::testing {
namespace {

/// A figure of /proc/self/status in KiB.
long memoryFigure(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  }
  throw std::runtime_error("no figure named " + name);
}

}  // namespace

MemoryGrowth::MemoryGrowth() : before_(memoryFigure("VmRSS")) {}

long MemoryGrowth::kibibytes() const { return memoryFigure("VmHWM") - before_; }

}  // namespace orvane::testing
