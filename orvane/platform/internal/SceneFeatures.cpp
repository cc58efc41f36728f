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
  const auto& pixels = image.pixels;
  for (std::size_t i = 0; i < pixels.size(); i += 3) {
    const auto [low, high] = std::minmax({pixels[i], pixels[i + 1], pixels[i + 2]});
    ++ranges[static_cast<std::size_t>(high - low)];
  }
  const auto count = static_cast<int>(pixels.size() / 3);
  int beyond = count / 20;
  std::size_t range = 255;
  while (range > 0 && (beyond -= ranges[range]) > 0) --range;
  features.colour = static_cast<float>(range) / 255;
}

void measureDetail(const SceneGrid& grid, SceneFeatures& features) {
  const auto& cells = grid.cells();
  features.detailed = shareOf(cells, [](const auto& cell) { return cell.detail > .015F; });
  features.smooth = shareOf(cells, [](const auto& cell) { return cell.detail < .04F; });
}

/// Of the blue alone, since what is low and pale may be another thing.
float paling(const SceneGrid& grid, const Mask& sky) {
  int foot = 0;
  for (int column = 0; column < grid.columns(); ++column)
    foot = std::max(foot, depthOf(grid, sky, column));
  Distribution upper;
  Distribution lower;
  for (int row = 0; row < foot; ++row) {
    for (int column = 0; column < grid.columns(); ++column) {
      const auto& cell = grid.at(column, row);
      if (!sky[grid.index(column, row)] || !cell.isBlue()) continue;
      if (row * 3 < foot) upper.add(cell.saturation);
      if ((row + 1) * 3 > foot * 2) lower.add(cell.saturation);
    }
  }
  return upper.mean() - lower.mean();
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

/// Share of the columns in which the sky ends at an edge rather than by and by. The edge may be
/// some way below what is sky for certain.
float skyEdge(const SceneGrid& grid, const Mask& sky) {
  constexpr int kBelow = 4;
  constexpr float kEdge = .06F;
  int sharp = 0;
  for (int column = 0; column < grid.columns(); ++column) {
    const int foot = depthOf(grid, sky, column);
    if (foot == 0) continue;
    float steepest = 0;
    for (int row = foot; row < std::min(foot + kBelow, grid.rows()); ++row) {
      const auto& above = grid.at(column, row - 1);
      const auto& below = grid.at(column, row);
      steepest = std::max({steepest, std::abs(above.light - below.light),
                           2 * std::abs(above.redShare - below.redShare),
                           2 * std::abs(above.greenShare - below.greenShare),
                           below.detail - above.detail});
    }
    sharp += steepest > kEdge;
  }
  return share(sharp, grid.columns());
}

/// How far the cells are an even surface of one tint with letters on it.
float blankness(const std::vector<SceneCell>& cells) {
  std::map<std::pair<int, int>, int> tints;
  int blank = 0;
  for (const auto& cell : cells) {
    if (cell.detail >= .012F) continue;
    const int alike = ++tints[{static_cast<int>(cell.redShare * kTints),
                               static_cast<int>(cell.greenShare * kTints)}];
    blank = std::max(blank, alike);
  }
  const float letters = shareOf(cells, [](const auto& cell) { return cell.detail > .05F; });
  return std::min(share(blank, static_cast<int>(cells.size())), 2 * letters);
}

void measureGround(const SceneGrid& grid, const Mask& sky, SceneFeatures& features) {
  std::vector<SceneCell> ground;
  for (int column = 0; column < grid.columns(); ++column) {
    for (int row = depthOf(grid, sky, column); row < grid.rows(); ++row)
      ground.push_back(grid.at(column, row));
  }
  features.groundBlank = blankness(ground);
  features.groundCover =
      share(static_cast<int>(ground.size()), static_cast<int>(grid.cells().size()));
  features.groundGreen = shareOf(ground, &SceneCell::isGreen);
  features.groundWhite = shareOf(ground, &SceneCell::isWhite);
  features.groundDark = shareOf(ground, [](const auto& cell) { return cell.light < .15F; });
}

void measureWater(const SceneGrid& grid, const Horizon& horizon, SceneFeatures& features) {
  features.horizon = horizon.width;
  const int edge = horizon.row / SceneGrid::kCellSide;
  int water = 0;
  int count = 0;
  Distribution across;
  Distribution along;
  Distribution first;
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
  features.waterCover = share(water, count);
  features.waterWaves = along.mean() / std::max(across.mean(), .002F);
  features.waterUneven = first.deviation();
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
  features.skyEdge = skyEdge(grid, sky);
  features.skyRagged = raggedness(grid, sky);
  measureGround(grid, sky, features);
  measureWater(grid, horizon, features);
  measureEvening(grid, features);
  measureNight(light, features);
  measurePlants(grid, features);
  return features;
}

}  // namespace orvane::platform
