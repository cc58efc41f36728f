#pragma once

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <ostream>
#include <span>
#include <vector>

namespace orvane::soak {

/// Memory and descriptors of this process over the time of a run.
class Resources {
 public:
  /// Room for hours beforehand, so that the samples do not count as growth themselves.
  Resources() { samples_.reserve(100'000); }

  void sample() { samples_.push_back({residentMemory(), allocatedMemory(), openDescriptors()}); }

  /// Compares the last quarter of the samples with the second: the first is for warming up.
  /// Without `memory`, descriptors only.
  [[nodiscard]] bool haveGrown(bool memory) const {
    const auto before = quarter(1);
    const auto after = quarter(3);
    // Physical memory rises by 8 MiB whenever the buffer of a part comes to lie in another arena,
    // and shows coarse faults only. What is allocated hardly moves: 100 bytes lost by each upload,
    // by each listing or by each exchange of tags come to more than the margin in ten minutes.
    return after.descriptors > before.descriptors + 4 ||
           (memory && after.resident > before.resident + 20) ||
           (memory && after.allocated > before.allocated + 0.25);
  }

  void print(std::ostream& output) const {
    output << std::fixed << std::setprecision(2)
           << "  quarter: resident MiB (mean), allocated MiB (least), descriptors (mean)\n";
    for (std::size_t i = 0; i < 4; ++i) {
      const auto [resident, allocated, descriptors] = quarter(i);
      output << "  " << i + 1 << ": " << resident << ", " << allocated << ", " << descriptors
             << '\n';
    }
  }

 private:
  struct Sample {
    double resident;   ///< MiB of physical memory.
    double allocated;  ///< MiB allocated and not freed.
    double descriptors;
  };
  static constexpr double kMiB = 1024.0 * 1024;

  static double residentMemory() {
    std::ifstream figures("/proc/self/statm");
    double total = 0;
    double resident = 0;
    figures >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / kMiB;
  }
  static double allocatedMemory() {
    const auto figures = mallinfo2();
    return static_cast<double>(figures.uordblks + figures.hblkhd) / kMiB;
  }
  static double openDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<double>(std::distance(begin(open), end(open)));
  }

  /// Mean of the first and the last, and least of what is allocated, which what is under way at
  /// one moment does not touch.
  [[nodiscard]] Sample quarter(std::size_t number) const {
    const auto size = samples_.size() / 4;
    const auto part = static_cast<double>(size);
    const auto samples = std::span(samples_).subspan(number * size, size);
    Sample result{0, samples.front().allocated, 0};
    for (const auto& sample : samples) {
      result.resident += sample.resident / part;
      result.allocated = std::min(result.allocated, sample.allocated);
      result.descriptors += sample.descriptors / part;
    }
    return result;
  }

  std::vector<Sample> samples_;
};

}  // namespace orvane::soak
