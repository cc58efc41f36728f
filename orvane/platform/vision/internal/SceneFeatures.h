#pragma once

#include <orvane/platform/images/ImageReader.h>

#include <optional>

namespace orvane::platform {

/// Images are measured at this many pixels along their longer side.
constexpr int kSceneImageSide = 192;

/// What can be measured of a picture without knowing what it shows. The picture is cut into cells
/// of 8 by 8 pixels. The sky is every blue or pale, smooth cell that is connected with the upper
/// edge over such cells; the ground is what lies below it. Shares run from 0 to 1.
struct SceneFeatures {
  /// Share of the upper edge that is sky.
  float skyTop = 0;
  /// Share of the lower edge that is sky.
  float skyBottom = 0;
  /// Share of the sky's cells that are blue.
  float skyBlue = 0;
  /// Mean detail of the sky: how far a pixel's light is from the mean of its neighbours.
  float skyDetail = 0;

  /// Share of the ground's cells that are as even as paint.
  float groundFlat = 0;
};

/// Measures the picture; nothing when a side is shorter than 48 pixels.
std::optional<SceneFeatures> measureScene(const RgbImage& image);

}  // namespace orvane::platform
