#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace orvane::platform {

/// Brings an image to another size while its rows come in: each new sample is the mean of the area
/// that it covers. Sides may grow as well as shrink. Holds one row of the source besides the
/// result.
class AreaAverage {
 public:
  struct Size {
    int width;
    int height;
  };

  /// All sides and `bands`, the samples in each pixel, are 1 or more.
  AreaAverage(Size source, Size target, int bands)
      : source_(source),
        target_(target),
        bands_(static_cast<std::size_t>(bands)),
        sum_(static_cast<std::size_t>(source.width) * bands_),
        result_(static_cast<std::size_t>(target.width) * static_cast<std::size_t>(target.height) *
                bands_) {}

  /// Takes the next row of the source, from the top; as many of them as it is high.
  template <class Sample>
  void add(std::span<const Sample> row) {
    // In units of which a source row has `target_.height` and a target row `source_.height`.
    const std::int64_t top = added_ * target_.height;
    const std::int64_t bottom = top + target_.height;
    ++added_;
    for (;;) {
      const std::int64_t start = finished_ * source_.height;
      const std::int64_t end = start + source_.height;
      const auto shared = std::min(bottom, end) - std::max(top, start);
      const auto weight = static_cast<float>(shared) / static_cast<float>(source_.height);
      for (std::size_t i = 0; i < sum_.size(); ++i) sum_[i] += weight * static_cast<float>(row[i]);
      if (end > bottom) return;
      finishRow();
      if (end == bottom) return;
    }
  }

  /// The samples of the new image, row by row.
  [[nodiscard]] std::vector<float> take() && { return std::move(result_); }

 private:
  void finishRow() {
    float* pixel = &result_[static_cast<std::size_t>(finished_ * target_.width) * bands_];
    for (std::int64_t column = 0; column < target_.width; ++column, pixel += bands_) {
      const std::int64_t start = column * source_.width;
      const std::int64_t end = start + source_.width;
      for (auto x = start / target_.width; x * target_.width < end; ++x) {
        const auto left = x * target_.width;
        const auto shared = std::min(end, left + target_.width) - std::max(start, left);
        const auto weight = static_cast<float>(shared) / static_cast<float>(source_.width);
        const auto* samples = &sum_[static_cast<std::size_t>(x) * bands_];
        for (std::size_t band = 0; band < bands_; ++band) pixel[band] += weight * samples[band];
      }
    }
    sum_.assign(sum_.size(), 0.0F);
    ++finished_;
  }

  Size source_;
  Size target_;
  std::size_t bands_;
  std::int64_t added_ = 0;
  std::int64_t finished_ = 0;
  std::vector<float> sum_;  ///< The target row that is being filled, as wide as the source.
  std::vector<float> result_;
};

}  // namespace orvane::platform
