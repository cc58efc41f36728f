#pragma once

#include <cstdint>

namespace orvane {

/// How far the host's pass over the assets that are already in the library has come.
struct BackfillProgress {
  std::int64_t total = 0;      ///< Assets to tag.
  std::int64_t processed = 0;  ///< Assets tagged so far.
  std::int64_t completed = 0;  ///< 1 when the pass has finished, else 0.

  bool operator==(const BackfillProgress&) const = default;
};

}  // namespace orvane
