#pragma once

#include <orvane/platform/internal/SceneGrid.h>

#include <algorithm>
#include <cmath>
#include <ranges>

namespace orvane::platform {

inline float share(int part, int whole) {
  return whole > 0 ? static_cast<float>(part) / static_cast<float>(whole) : 0;
}

/// Share of the elements for which `holds` is true.
template <class Range, class Predicate>
float shareOf(const Range& range, Predicate holds) {
  return share(static_cast<int>(std::ranges::count_if(range, holds)),
               static_cast<int>(std::ranges::size(range)));
}

/// Mean and standard deviation of what is added.
class Distribution {
 public:
  void add(float value) {
    ++count_;
    sum_ += value;
    squares_ += value * value;
  }
  [[nodiscard]] int count() const { return count_; }
  [[nodiscard]] float mean() const { return count_ ? sum_ / static_cast<float>(count_) : 0; }
  [[nodiscard]] float variance() const {
    return count_ ? std::max(squares_ / static_cast<float>(count_) - mean() * mean(), 0.0F) : 0;
  }
  [[nodiscard]] float deviation() const { return std::sqrt(variance()); }

 private:
  int count_ = 0;
  float sum_ = 0;
  float squares_ = 0;
};

/// The light of `rows` rows from `top` on, in one column.
inline float lightIn(const LightPlane& light, int x, int top, int rows) {
  float sum = 0;
  for (int y = top; y < top + rows; ++y) sum += light.at(x, y);
  return sum / static_cast<float>(rows);
}

}  // namespace orvane::platform
