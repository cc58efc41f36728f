#include <orvane/platform/vision/internal/SceneFeatures.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

namespace orvane::platform {
namespace {

constexpr int kCellSide = 8;
constexpr int kLeastSide = 6 * kCellSide;
/// Below this detail, a cell is as even as paint or paper.
constexpr float kFlat = .004F;

struct Cell {
  float hue = 0;  // In degrees, from 0 to 360; 0 for grey.
  float saturation = 0;
  float value = 0;
  float detail = 0;

  [[nodiscard]] bool isBlue() const {
    return hue >= 190 && hue <= 245 && saturation >= .1F && value >= .3F && detail < .02F;
  }
  /// Cloud or haze: without colour, or a pale blue.
  [[nodiscard]] bool isPale() const {
    const bool paleBlue = saturation < .3F && hue > 180 && hue < 260;
    return (saturation < .12F || paleBlue) && value >= .5F && detail < .03F;
  }
};

/// Row by row. What is left over at the right and at the bottom of the picture is not looked at.
struct Grid {
  int columns = 0;
  int rows = 0;
  std::vector<Cell> cells;
  std::vector<bool> sky;

  [[nodiscard]] std::size_t index(int column, int row) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
           static_cast<std::size_t>(column);
  }
  [[nodiscard]] const Cell& at(int column, int row) const { return cells[index(column, row)]; }
  [[nodiscard]] bool isSky(int column, int row) const { return sky[index(column, row)]; }
};

struct Mean {
  float sum = 0;
  int count = 0;
  void add(float value) {
    sum += value;
    ++count;
  }
  [[nodiscard]] float value() const { return count > 0 ? sum / static_cast<float>(count) : 0; }
};

/// The perceived light of each pixel, from 0 to 1.
std::vector<float> lightOf(const RgbImage& image) {
  std::vector<float> light;
  light.reserve(image.pixels.size() / 3);
  for (std::size_t i = 0; i + 2 < image.pixels.size(); i += 3) {
    light.push_back((.299F * static_cast<float>(image.pixels[i]) +
                     .587F * static_cast<float>(image.pixels[i + 1]) +
                     .114F * static_cast<float>(image.pixels[i + 2])) /
                    255);
  }
  return light;
}

float hueOf(float red, float green, float blue, float highest, float range) {
  if (range <= 0) return 0;
  if (highest == red) return std::fmod(60 * (green - blue) / range + 360, 360.0F);
  if (highest == green) return 60 * (blue - red) / range + 120;
  return 60 * (red - green) / range + 240;
}

Cell cellAt(const RgbImage& image, const std::vector<float>& light, int left, int top) {
  const auto pixelAt = [&](int x, int y) {
    return static_cast<std::size_t>(std::clamp(y, 0, image.height - 1)) *
               static_cast<std::size_t>(image.width) +
           static_cast<std::size_t>(std::clamp(x, 0, image.width - 1));
  };
  std::array<Mean, 3> colour;
  Mean detail;
  for (int y = top; y < top + kCellSide; ++y) {
    for (int x = left; x < left + kCellSide; ++x) {
      const auto pixel = pixelAt(x, y);
      for (std::size_t channel = 0; channel < 3; ++channel)
        colour[channel].add(static_cast<float>(image.pixels[3 * pixel + channel]));
      detail.add(std::abs(light[pixel] - (light[pixelAt(x - 1, y)] + light[pixelAt(x + 1, y)] +
                                          light[pixelAt(x, y - 1)] + light[pixelAt(x, y + 1)]) /
                                             4));
    }
  }
  const float red = colour[0].value();
  const float green = colour[1].value();
  const float blue = colour[2].value();
  const auto [lowest, highest] = std::minmax({red, green, blue});
  return {.hue = hueOf(red, green, blue, highest, highest - lowest),
          .saturation = highest > 0 ? (highest - lowest) / highest : 0,
          .value = highest / 255,
          .detail = detail.value()};
}

/// Marks the blue and pale cells that are reached from the upper edge over such cells.
void markSky(Grid& grid) {
  grid.sky.assign(grid.cells.size(), false);
  std::vector<std::pair<int, int>> open;
  const auto visit = [&](int column, int row) {
    if (column < 0 || row < 0 || column >= grid.columns || row >= grid.rows) return;
    const Cell& cell = grid.at(column, row);
    if (grid.isSky(column, row) || !(cell.isBlue() || cell.isPale())) return;
    grid.sky[grid.index(column, row)] = true;
    open.emplace_back(column, row);
  };
  for (int column = 0; column < grid.columns; ++column) visit(column, 0);
  while (!open.empty()) {
    const auto [column, row] = open.back();
    open.pop_back();
    visit(column - 1, row);
    visit(column + 1, row);
    visit(column, row - 1);
    visit(column, row + 1);
  }
}

Grid gridOf(const RgbImage& image) {
  const std::vector<float> light = lightOf(image);
  Grid grid{
      .columns = image.width / kCellSide, .rows = image.height / kCellSide, .cells = {}, .sky = {}};
  for (int row = 0; row < grid.rows; ++row) {
    for (int column = 0; column < grid.columns; ++column)
      grid.cells.push_back(cellAt(image, light, column * kCellSide, row * kCellSide));
  }
  markSky(grid);
  return grid;
}

void measureSky(const Grid& grid, SceneFeatures& features) {
  Mean top;
  Mean bottom;
  Mean blue;
  Mean detail;
  for (int row = 0; row < grid.rows; ++row) {
    for (int column = 0; column < grid.columns; ++column) {
      const bool sky = grid.isSky(column, row);
      if (row == 0) top.add(sky ? 1 : 0);
      if (row == grid.rows - 1) bottom.add(sky ? 1 : 0);
      if (!sky) continue;
      const Cell& cell = grid.at(column, row);
      blue.add(cell.isBlue() ? 1 : 0);
      detail.add(cell.detail);
    }
  }
  features.skyTop = top.value();
  features.skyBottom = bottom.value();
  features.skyBlue = blue.value();
  features.skyDetail = detail.value();
}

void measureGround(const Grid& grid, SceneFeatures& features) {
  Mean flat;
  for (int column = 0; column < grid.columns; ++column) {
    for (int row = grid.rows - 1; row >= 0 && !grid.isSky(column, row); --row) {
      flat.add(grid.at(column, row).detail < kFlat ? 1 : 0);
    }
  }
  features.groundFlat = flat.value();
}

}  // namespace

std::optional<SceneFeatures> measureScene(const RgbImage& image) {
  if (image.width < kLeastSide || image.height < kLeastSide) return std::nullopt;
  const Grid grid = gridOf(image);
  SceneFeatures features;
  measureSky(grid, features);
  measureGround(grid, features);
  return features;
}

}  // namespace orvane::platform
