#pragma once

#include <string>

namespace orvane {

/// One thing that an image shows: an Italian tag, and how sure its source is of it, from 0 to 1.
struct TagWithConfidence {
  std::string tag;
  double confidence = 0.0;

  bool operator==(const TagWithConfidence&) const = default;
};

}  // namespace orvane
