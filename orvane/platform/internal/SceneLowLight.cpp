#include <orvane/platform/internal/SceneLowLight.h>
#include <orvane/platform/internal/SceneStatistics.h>

#include <algorithm>
#include <cstdlib>

namespace orvane::platform {
namespace {

/// How far around a star it has to be dark, in pixels.
constexpr int kStarReach = 4;

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

void measureEvening(const SceneGrid& grid, SceneFeatures& features) {
  int rows = 0;
  Distribution withinRows;
  Distribution ofRows;
  Distribution low;
  float brightest = 0;
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
  features.glowTints = reddest - leastRed;
  features.glowRowwise = ofRows.variance() / std::max(ofRows.variance() + withinRows.mean(), 1e-4F);
  features.glowGround = brightest > 0 ? low.mean() / brightest : 1;
}

void measureNight(const LightPlane& light, SceneFeatures& features) {
  features.dark = shareOf(light.values, [](float value) { return value < .2F; });
  if (features.dark < .5F) return;
  int alone = 0;
  int crowded = 0;
  const int end = light.height / 2;
  for (int y = kStarReach; y + kStarReach < end; ++y) {
    for (int x = kStarReach; x + kStarReach < light.width; ++x) {
      const Light point = lightAt(light, x, y);
      crowded += point == Light::crowded;
      alone += point == Light::alone;
    }
  }
  features.stars = static_cast<float>(alone);
  features.starsAlone = share(alone, alone + crowded);
}

}  // namespace orvane::platform
