#pragma once

#include <ostream>
#include <vector>

#include "Findings.h"

namespace orvane::soak {

/// Memory and descriptors of this process over the time of a run.
class Resources {
 public:
  void sample();
  /// Compares the last quarter of the samples with the second: the first is for warming up.
  /// Without `memory`, descriptors only.
  void judge(Findings& findings, bool memory) const;
  void print(std::ostream& output) const;

 private:
  struct Sample {
    double resident;  ///< MiB of physical memory.
    double heap;      ///< MiB allocated and not freed.
    double descriptors;
  };
  /// Mean of the first and the last, and least of the heap, which what is under way at one moment
  /// does not touch.
  [[nodiscard]] Sample quarter(std::size_t number) const;

  std::vector<Sample> samples_;
};

}  // namespace orvane::soak
