#pragma once

#include <cstdint>
#include <string>

namespace orvane {

/// A tag, and how many rows of the tag database have it.
struct TagWithCount {
  std::string tag;
  std::int64_t count = 0;

  bool operator==(const TagWithCount&) const = default;
};

}  // namespace orvane
