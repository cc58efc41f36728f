#include <orvane/platform/internal/SceneLowLight.h>
#include <orvane/platform/internal/SceneStatistics.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace orvane::platform {
namespace {

/// How far around a star it has to be dark, in pixels.
constexpr int kStarReach = 4;

/// Share of the columns whose strongest change from light to dark goes on in the next column.
float skyline(const LightPlane& light) {
  int continued = 0;
  int former = -1;
  for (int x = 0; x < light.width; ++x) {
    float steepest = .1F;
    int edge = -1;
    for (int y = 2; y + 4 < light.height; ++y) {
      const float step = lightIn(light, x, y - 2, 2) - lightIn(light, x, y + 2, 2);
      if (step <= steepest) continue;
      steepest = step;
      edge = y;
    }
    continued += edge >= 0 && former >= 0 && std::abs(edge - former) <= 3;
    former = edge;
  }
  return share(continued, light.width);
}

/// How a point of light stands at (x, y): there is none, others are near, or it is alone.
enum class Light { none, crowded, alone };

Light lightAt(const LightPlane& light, int x, int y) {
  const float here = light.at(x, y);
  if (here < .15F) return Light::none;
  Distribution around;
  float brightest = 0;
  for (int dy = -kStarReach; dy <= kStarReach; ++dy) {
    for (int dx = -kStarReach; dx <= kStarReach; ++dx) {
      const float there = light.at(x + dx, y + dy);
      const int distance = std::max(std::abs(dx), std::abs(dy));
      if (distance <= 1 && there > here) return Light::none;
      if (distance < 3) continue;
      around.add(there);
      brightest = std::max(brightest, there);
    }
  }
  if (around.mean() > .25F || here < around.mean() + .08F) return Light::none;
  return here > brightest + .05F ? Light::alone : Light::crowded;
}

}  // namespace

void measureEvening(const SceneGrid& grid, const LightPlane& light, SceneFeatures& features) {
  int rows = 0;
  Distribution withinRows;
  Distribution ofRows;
  Distribution low;
  float brightest = 0;
  float top = 0;
  float reddest = 0;
  float leastRed = 1;
  for (int row = 0; row < grid.rows(); ++row) {
    Distribution values;
    Distribution reds;
    int warm = 0;
    for (int column = 0; column < grid.columns(); ++column) {
      const auto& cell = grid.at(column, row);
      warm += cell.isWarm();
      values.add(cell.light);
      reds.add(cell.redShare);
      if (row * 3 >= grid.rows() * 2) low.add(cell.light);
    }
    if (row == 0) top = values.mean();
    const bool glows = share(warm, grid.columns()) >= .6F;
    if (glows || row == 0) {
      reddest = std::max(reddest, reds.mean());
      leastRed = std::min(leastRed, reds.mean());
    }
    if (!glows) continue;
    ++rows;
    withinRows.add(values.variance());
    ofRows.add(values.mean());
    brightest = std::max(brightest, values.mean());
  }
  features.glowRows = share(rows, grid.rows());
  features.glowFall = brightest - top;
  features.glowTints = reddest - leastRed;
  features.glowRowwise = ofRows.variance() / std::max(ofRows.variance() + withinRows.mean(), 1e-4F);
  features.glowGround = brightest > 0 ? low.mean() / brightest : 1;
  features.skyline = skyline(light);
}

void measureNight(const LightPlane& light, SceneFeatures& features) {
  int dark = 0;
  for (const float value : light.values) dark += value < .2F;
  features.dark = share(dark, static_cast<int>(light.values.size()));
  if (features.dark < .5F) return;
  constexpr int kBlocks = 4;
  std::array<std::array<int, kBlocks>, kBlocks> blocks{};
  int alone = 0;
  int crowded = 0;
  const int end = light.height / 2;
  for (int y = kStarReach; y + kStarReach < end; ++y) {
    for (int x = kStarReach; x + kStarReach < light.width; ++x) {
      const Light point = lightAt(light, x, y);
      crowded += point == Light::crowded;
      if (point != Light::alone) continue;
      ++alone;
      ++blocks[static_cast<std::size_t>(y) * kBlocks / static_cast<std::size_t>(end)]
              [static_cast<std::size_t>(x) * kBlocks / static_cast<std::size_t>(light.width)];
    }
  }
  features.stars = static_cast<float>(alone);
  features.starsAlone = share(alone, alone + crowded);
  int filled = 0;
  for (const auto& row : blocks)
    filled += static_cast<int>(std::ranges::count_if(row, [](int count) { return count > 0; }));
  features.starSpread = share(filled, kBlocks * kBlocks);
}

}  // namespace orvane::platform
