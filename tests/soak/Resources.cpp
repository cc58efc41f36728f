#include "Resources.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <limits>
#include <span>

namespace orvane::soak {
namespace {

constexpr double kMiB = 1024.0 * 1024;
// MiB. Physical memory rises by 8 whenever the buffer of a part comes to lie in another arena, and
// shows coarse faults only. What is allocated hardly moves: 100 bytes lost by each upload, by each
// listing or by each exchange of tags come to more than the margin in ten minutes.
constexpr double kResidentMargin = 20;
constexpr double kHeapMargin = 0.25;
constexpr double kDescriptorMargin = 4;

double residentMemory() {
  std::ifstream figures("/proc/self/statm");
  double total = 0;
  double resident = 0;
  figures >> total >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / kMiB;
}

double allocatedMemory() {
  const auto figures = mallinfo2();
  return static_cast<double>(figures.uordblks + figures.hblkhd) / kMiB;
}

double openDescriptors() {
  const std::filesystem::directory_iterator open("/proc/self/fd");
  return static_cast<double>(std::distance(begin(open), end(open)));
}

}  // namespace

void Resources::sample() {
  samples_.push_back({residentMemory(), allocatedMemory(), openDescriptors()});
}

Resources::Sample Resources::quarter(std::size_t number) const {
  const auto size = samples_.size() / 4;
  const auto part = static_cast<double>(size);
  Sample result{.resident = 0, .heap = std::numeric_limits<double>::max(), .descriptors = 0};
  for (const auto& sample : std::span(samples_).subspan(number * size, size)) {
    result.resident += sample.resident / part;
    result.heap = std::min(result.heap, sample.heap);
    result.descriptors += sample.descriptors / part;
  }
  return result;
}

void Resources::judge(Findings& findings, bool memory) const {
  const auto before = quarter(1);
  const auto after = quarter(3);
  findings.expect(after.descriptors <= before.descriptors + kDescriptorMargin, "descriptors grow");
  if (!memory) return;
  findings.expect(after.resident <= before.resident + kResidentMargin, "resident memory grows");
  findings.expect(after.heap <= before.heap + kHeapMargin, "allocated memory grows");
}

void Resources::print(std::ostream& output) const {
  output << std::fixed << std::setprecision(2)
         << "  quarter: resident MiB (mean), allocated MiB (least), descriptors (mean)\n";
  for (std::size_t number = 0; number < 4; ++number) {
    const auto [resident, heap, descriptors] = quarter(number);
    output << "  " << number + 1 << ": " << resident << ", " << heap << ", " << descriptors << '\n';
  }
}

}  // namespace orvane::soak
