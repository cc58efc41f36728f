#include <orvane/platform/internal/SceneFeatures.h>
#include <orvane/platform/internal/SceneGrid.h>
#include <orvane/platform/internal/SceneLayout.h>
#include <orvane/platform/internal/SceneLowLight.h>
#include <orvane/platform/internal/SceneStatistics.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

namespace orvane::platform {
namespace {

constexpr int kLeastCells = 6;
/// As many shades of a channel's share in a colour are told apart.
constexpr float kTints = 120;

float entropy(const std::array<int, 32>& histogram, int total) {
  float bits = 0;
  for (const int count : histogram) {
    if (count == 0) continue;
    const float p = share(count, total);
    bits -= p * std::log2(p);
  }
  return bits;
}

void measureTones(const LightPlane& light, SceneFeatures& features) {
  std::array<int, 32> histogram{};
  for (const float value : light.values)
    ++histogram[static_cast<std::size_t>(std::min(value * 32, 31.0F))];
  features.tones = entropy(histogram, static_cast<int>(light.values.size()));
}

void measureColour(const RgbImage& image, SceneFeatures& features) {
  std::array<int, 256> ranges{};
  int flat = 0;
  const auto stride = static_cast<std::size_t>(image.width) * 3;
  const auto& pixels = image.pixels;
  for (std::size_t i = 0; i < pixels.size(); i += 3) {
    const auto [low, high] = std::minmax({pixels[i], pixels[i + 1], pixels[i + 2]});
    ++ranges[static_cast<std::size_t>(high - low)];
    if (i + stride + 3 > pixels.size()) continue;
    bool equal = true;
    for (std::size_t c = i; c < i + 3; ++c)
      equal = equal && pixels[c] == pixels[c + 3] && pixels[c] == pixels[c + stride];
    flat += equal;
  }
  const auto count = static_cast<int>(pixels.size() / 3);
  features.flat = share(flat, count);
  int beyond = count / 20;
  std::size_t range = 255;
  while (range > 0 && (beyond -= ranges[range]) > 0) --range;
  features.colour = static_cast<float>(range) / 255;
}

void measureDetail(const SceneGrid& grid, SceneFeatures& features) {
  int detailed = 0;
  int smooth = 0;
  for (const auto& cell : grid.cells()) {
    detailed += cell.detail > .015F;
    smooth += cell.detail < .04F;
  }
  const auto count = static_cast<int>(grid.cells().size());
  features.detailed = share(detailed, count);
  features.smooth = share(smooth, count);
}

float median(std::vector<float>& values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

/// Medians, and of the blue alone, since what is low and pale may be another thing.
float paling(const SceneGrid& grid, const Mask& sky) {
  const auto isBlue = [&](int column, int row) {
    return sky[grid.index(column, row)] && grid.at(column, row).isBlue();
  };
  int foot = 0;
  for (int row = 0; row < grid.rows(); ++row) {
    for (int column = 0; column < grid.columns(); ++column)
      if (isBlue(column, row)) foot = row + 1;
  }
  std::vector<float> upper;
  std::vector<float> lower;
  for (int row = 0; row < foot; ++row) {
    for (int column = 0; column < grid.columns(); ++column) {
      if (!isBlue(column, row)) continue;
      if (row * 3 < foot) upper.push_back(grid.at(column, row).saturation);
      if ((row + 1) * 3 > foot * 2) lower.push_back(grid.at(column, row).saturation);
    }
  }
  return median(upper) - median(lower);
}

/// How little of the values is alike: 0 when all are, towards 1 when each stands for itself.
float variety(const std::vector<float>& values) {
  constexpr float kLevels = 40;
  std::array<int, static_cast<std::size_t>(kLevels) + 1> counts{};
  for (const float value : values) ++counts[static_cast<std::size_t>(value * kLevels)];
  return 1 - share(std::ranges::max(counts), static_cast<int>(values.size()));
}

void measureSky(const SceneGrid& grid, const Mask& sky, SceneFeatures& features) {
  int blue = 0;
  int top = 0;
  std::vector<float> saturations;
  Distribution patches;
  Distribution light;
  Distribution saturation;
  Distribution product;
  for (int row = 0; row < grid.rows(); ++row) {
    for (int column = 0; column < grid.columns(); ++column) {
      if (!sky[grid.index(column, row)]) continue;
      const auto& cell = grid.at(column, row);
      top += row == 0;
      blue += cell.isBlue();
      light.add(cell.light);
      saturation.add(cell.saturation);
      product.add(cell.light * cell.saturation);
      saturations.push_back(cell.saturation);
      if (column == 0 || column + 1 == grid.columns()) continue;
      patches.add(std::abs(
          cell.saturation -
          (grid.at(column - 1, row).saturation + grid.at(column + 1, row).saturation) / 2));
    }
  }
  if (saturations.empty()) return;
  features.skyCover = share(light.count(), static_cast<int>(grid.cells().size()));
  features.skyBlue = share(blue, light.count());
  features.skyTop = share(top, grid.columns());
  features.skyPatches = patches.mean();
  features.skyShades = variety(saturations);
  features.skyPaling = paling(grid, sky);
  features.skyWhitening = (light.mean() * saturation.mean() - product.mean()) /
                          std::max(light.deviation() * saturation.deviation(), 1e-4F);
}

/// The largest difference of a channel between two places of one column.
int contrast(const RgbImage& image, int x, int y, int otherY) {
  const auto at = [&](int row) {
    return 3 * (static_cast<std::size_t>(row) * static_cast<std::size_t>(image.width) +
                static_cast<std::size_t>(x));
  };
  int largest = 0;
  for (std::size_t c = 0; c < 3; ++c)
    largest = std::max(largest, std::abs(image.pixels[at(y) + c] - image.pixels[at(otherY) + c]));
  return largest;
}

/// Share of the columns in which the sky ends at an edge rather than by and by. The edge may be
/// some way below what is sky for certain.
float skyEdge(const RgbImage& image, const SceneGrid& grid, const Mask& sky) {
  constexpr int kReach = 10;
  constexpr int kBelow = 32;
  int sharp = 0;
  for (int x = 0; x < image.width; ++x) {
    const int column = std::min(x / SceneGrid::kCellSide, grid.columns() - 1);
    const int foot = depthOf(grid, sky, column) * SceneGrid::kCellSide;
    if (foot == 0) continue;
    int steepest = 0;
    int edge = 0;
    const int end = std::min(foot + kBelow, image.height - kReach);
    for (int y = std::max(foot - kReach, kReach); y < end; ++y) {
      const int step = contrast(image, x, y - 1, y + 1);
      if (step > steepest) edge = y;
      steepest = std::max(steepest, step);
    }
    sharp += steepest > 16 && steepest * 2 > contrast(image, x, edge - kReach, edge + kReach - 1);
  }
  return share(sharp, image.width);
}

void measureGround(const SceneGrid& grid, const Mask& sky, SceneFeatures& features) {
  int cover = 0;
  int green = 0;
  int white = 0;
  int sand = 0;
  int water = 0;
  int dark = 0;
  std::map<std::pair<int, int>, int> tints;
  int blank = 0;
  int letters = 0;
  Distribution detail;
  Distribution light;
  for (int column = 0; column < grid.columns(); ++column) {
    for (int row = depthOf(grid, sky, column); row < grid.rows(); ++row) {
      const auto& cell = grid.at(column, row);
      ++cover;
      green += cell.isGreen();
      white += cell.isWhite();
      sand += cell.isSand();
      water += cell.isWater();
      dark += cell.light < .15F;
      detail.add(cell.detail);
      light.add(cell.light);
      letters += cell.detail > .05F;
      if (cell.detail < .012F) {
        const int alike = ++tints[{static_cast<int>(cell.redShare * kTints),
                                   static_cast<int>(cell.greenShare * kTints)}];
        blank = std::max(blank, alike);
      }
    }
  }
  features.groundBlank = std::min(share(blank, cover), 2 * share(letters, cover));
  features.groundCover = share(cover, static_cast<int>(grid.cells().size()));
  features.groundDetail = detail.mean();
  features.groundRelief = light.deviation();
  features.groundGreen = share(green, cover);
  features.groundWhite = share(white, cover);
  features.groundSand = share(sand, cover);
  features.groundWater = share(water, cover);
  features.groundDark = share(dark, cover);
}

void measureWater(const SceneGrid& grid, const Horizon& horizon, SceneFeatures& features) {
  features.horizon = horizon.width;
  const int edge = horizon.row / SceneGrid::kCellSide;
  int water = 0;
  int count = 0;
  Distribution across;
  Distribution along;
  Distribution first;
  Distribution above;
  const int end = std::min(grid.rows(), edge + 1 + std::max(2, (grid.rows() - edge) / 3));
  for (int row = edge + 1; row < end; ++row) {
    for (int column = 0; column < grid.columns(); ++column) {
      const auto& cell = grid.at(column, row);
      ++count;
      water += cell.isWater();
      across.add(cell.detailAcross);
      along.add(cell.detailAlong);
      if (row == edge + 1) first.add(cell.light);
    }
  }
  for (int row = 0; row < edge; ++row) {
    for (int column = 0; column < grid.columns(); ++column) above.add(grid.at(column, row).detail);
  }
  features.waterCover = share(water, count);
  features.waterWaves = along.mean() / std::max(across.mean(), .002F);
  features.waterUneven = first.deviation();
  features.detailAbove = above.mean();
}

void measurePlants(const SceneGrid& grid, SceneFeatures& features) {
  std::vector<float> hues;
  int leafy = 0;
  for (const auto& cell : grid.cells()) {
    if (!cell.isGreen()) continue;
    hues.push_back(cell.hue);
    leafy += cell.detail > .03F * std::max(cell.light, .2F);
  }
  if (hues.empty()) return;
  std::ranges::sort(hues);
  features.greenCover = share(static_cast<int>(hues.size()), static_cast<int>(grid.cells().size()));
  features.greenDetail = share(leafy, static_cast<int>(hues.size()));
  features.greenHue = hues[hues.size() / 2];
  features.greenVariety = hues[hues.size() * 3 / 4] - hues[hues.size() / 4];
}

}  // namespace

std::optional<SceneFeatures> measureScene(const RgbImage& image) {
  constexpr int kLeastSide = kLeastCells * SceneGrid::kCellSide;
  if (image.width < kLeastSide || image.height < kLeastSide) return std::nullopt;
  const LightPlane light = lightOf(image);
  const SceneGrid grid(image, light);
  SceneFeatures features;
  measureTones(light, features);
  measureColour(image, features);
  measureDetail(grid, features);
  const Horizon horizon = findHorizon(light);
  const Mask sky = findSky(grid, horizon);
  measureSky(grid, sky, features);
  features.skyEdge = skyEdge(image, grid, sky);
  features.skyRagged = raggedness(grid, sky);
  measureGround(grid, sky, features);
  measureWater(grid, horizon, features);
  measureEvening(grid, light, features);
  measureNight(light, features);
  measurePlants(grid, features);
  return features;
}

}  // namespace orvane::platform
