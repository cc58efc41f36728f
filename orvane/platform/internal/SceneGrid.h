#pragma once

#include <orvane/platform/internal/ImageReader.h>

#include <cstddef>
#include <vector>

namespace orvane::platform {

/// One value per pixel, rows from the top.
struct LightPlane {
  int width = 0;
  int height = 0;
  std::vector<float> values;

  [[nodiscard]] float at(int x, int y) const {
    return values[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                  static_cast<std::size_t>(x)];
  }
};

/// The perceived light of each pixel, from 0 to 1.
LightPlane lightOf(const RgbImage& image);

/// A square of pixels, in the numbers that tell what it may be made of.
struct SceneCell {
  /// In degrees, from 0 to 360; 0 when there is no colour.
  float hue = 0;
  /// From 0 to 1, as are the others.
  float saturation = 0;
  float value = 0;
  float light = 0;
  /// What red and green contribute to the sum of the channels: a tint, however it is lit.
  float redShare = 0;
  float greenShare = 0;
  /// How far a pixel's light is from what its neighbours make one expect, on average: grain,
  /// blades, letters; no slope, however steep.
  float detail = 0;
  /// The same along one direction alone: between left and right, between above and below.
  float detailAcross = 0;
  float detailAlong = 0;

  [[nodiscard]] bool isBlue() const;
  [[nodiscard]] bool isCloud() const;
  [[nodiscard]] bool isWarm() const;
  [[nodiscard]] bool isGreen() const;
  [[nodiscard]] bool isWhite() const;
  [[nodiscard]] bool isWater() const;
};

/// The image cut into squares; what is left over at the right and at the bottom is not looked at.
class SceneGrid {
 public:
  static constexpr int kCellSide = 8;

  SceneGrid(const RgbImage& image, const LightPlane& light);

  [[nodiscard]] int columns() const { return columns_; }
  [[nodiscard]] int rows() const { return rows_; }
  [[nodiscard]] const std::vector<SceneCell>& cells() const { return cells_; }
  [[nodiscard]] std::size_t index(int column, int row) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) +
           static_cast<std::size_t>(column);
  }
  [[nodiscard]] const SceneCell& at(int column, int row) const {
    return cells_[index(column, row)];
  }

 private:
  int columns_;
  int rows_;
  std::vector<SceneCell> cells_;
};

}  // namespace orvane::platform
