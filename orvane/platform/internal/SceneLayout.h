#pragma once

#include <orvane/platform/internal/SceneGrid.h>

#include <vector>

namespace orvane::platform {

/// A straight, level edge.
struct Horizon {
  int row = 0;
  float width = 0;
};

/// The row at which light changes most, and more than it does a little above and below: the sky's
/// own gradient is no horizon.
Horizon findHorizon(const LightPlane& light);

/// Which cells of a grid belong to something.
using Mask = std::vector<char>;

/// Blue or cloudy, smooth, reached from the upper edge, and above the horizon if there is one.
Mask findSky(const SceneGrid& grid, const Horizon& horizon);

/// How far down the marked cells reach in a column: the row below the last of them.
int depthOf(const SceneGrid& grid, const Mask& mask, int column);

/// By how many cells the foot of what is marked goes up or down from column to column, on average.
float raggedness(const SceneGrid& grid, const Mask& mask);

}  // namespace orvane::platform
