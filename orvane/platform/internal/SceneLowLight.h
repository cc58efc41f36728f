#pragma once

#include <orvane/platform/internal/SceneFeatures.h>
#include <orvane/platform/internal/SceneGrid.h>

namespace orvane::platform {

/// Fills in what tells an evening: the glow, its colours and the dark edge below it.
void measureEvening(const SceneGrid& grid, SceneFeatures& features);

/// Fills in what tells a night: darkness, and lone points of light in the upper half.
void measureNight(const LightPlane& light, SceneFeatures& features);

}  // namespace orvane::platform
