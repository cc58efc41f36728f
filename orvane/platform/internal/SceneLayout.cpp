#include <orvane/platform/internal/SceneLayout.h>
#include <orvane/platform/internal/SceneStatistics.h>

#include <algorithm>
#include <utility>

namespace orvane::platform {
namespace {

/// How the light changes from just above a row to just below it.
struct Step {
  float mean = 0;
  /// Share of the columns in which it changes in the more frequent direction.
  float width = 0;
};

/// A camera held slightly askew still has a horizon within the few rows between the two strips.
Step stepAt(const LightPlane& light, int y) {
  constexpr int kStrip = 4;
  constexpr int kGap = 3;
  constexpr float kLeast = .03F;
  int darker = 0;
  int lighter = 0;
  float sum = 0;
  for (int x = 0; x < light.width; x += 2) {
    const float step =
        lightIn(light, x, y + kGap - 1, kStrip) - lightIn(light, x, y - kGap - kStrip + 1, kStrip);
    darker += step < -kLeast;
    lighter += step > kLeast;
    sum += std::clamp(step, -.2F, .2F);
  }
  return {.mean = 2 * std::abs(sum) / static_cast<float>(light.width),
          .width = 2 * share(std::max(darker, lighter), light.width)};
}

}  // namespace

Horizon findHorizon(const LightPlane& light) {
  constexpr int kApart = 8;
  std::vector<Step> steps;
  for (int y = light.height / 6; y < light.height * 5 / 6; ++y) steps.push_back(stepAt(light, y));
  Horizon best;
  float sharpest = 0;
  for (std::size_t i = kApart; i + kApart < steps.size(); ++i) {
    const float sharp = steps[i].mean - std::max(steps[i - kApart].mean, steps[i + kApart].mean);
    if (sharp <= sharpest) continue;
    sharpest = sharp;
    best = {.row = light.height / 6 + static_cast<int>(i), .width = steps[i].width};
  }
  return best;
}

int depthOf(const SceneGrid& grid, const Mask& mask, int column) {
  int row = grid.rows();
  while (row > 0 && !mask[grid.index(column, row - 1)]) --row;
  return row;
}

float raggedness(const SceneGrid& grid, const Mask& mask) {
  int jumps = 0;
  for (int column = 1; column < grid.columns(); ++column)
    jumps += std::abs(depthOf(grid, mask, column) - depthOf(grid, mask, column - 1));
  return share(jumps, grid.columns() - 1);
}

namespace {

/// The cells that are reached from those in `row` over cells that `belongs` accepts.
template <class Belongs>
Mask flood(const SceneGrid& grid, int row, Belongs belongs) {
  Mask mask(grid.cells().size(), 0);
  std::vector<std::pair<int, int>> open;
  const auto visit = [&](int column, int at) {
    if (column < 0 || at < 0 || column >= grid.columns() || at >= grid.rows()) return;
    auto& mark = mask[grid.index(column, at)];
    if (mark || !belongs(column, at)) return;
    mark = 1;
    open.emplace_back(column, at);
  };
  for (int column = 0; column < grid.columns(); ++column) visit(column, row);
  while (!open.empty()) {
    const auto [column, at] = open.back();
    open.pop_back();
    visit(column - 1, at);
    visit(column + 1, at);
    visit(column, at - 1);
    visit(column, at + 1);
  }
  return mask;
}

/// White ground under a sky: all that is white and reaches the lower edge over its whole width.
Mask whiteGround(const SceneGrid& grid) {
  const int last = grid.rows() - 1;
  Mask mask = flood(grid, last, [&](int column, int row) {
    return row >= grid.rows() / 4 && grid.at(column, row).isWhite();
  });
  int reached = 0;
  for (int column = 0; column < grid.columns(); ++column) reached += mask[grid.index(column, last)];
  Mask rest(mask.size());
  std::ranges::transform(mask, rest.begin(), [](char marked) { return !marked; });
  if (share(reached, grid.columns()) < .8F || raggedness(grid, rest) > 1.2F)
    std::ranges::fill(mask, 0);
  return mask;
}

}  // namespace

Mask findSky(const SceneGrid& grid, const Horizon& horizon) {
  const Mask white = whiteGround(grid);
  const int foot = horizon.width > .8F ? horizon.row / SceneGrid::kCellSide : grid.rows();
  return flood(grid, 0, [&](int column, int row) {
    const auto& cell = grid.at(column, row);
    return row < foot && !white[grid.index(column, row)] && (cell.isBlue() || cell.isCloud());
  });
}

}  // namespace orvane::platform
