#pragma once

#include <orvane/platform/internal/ImageReader.h>

#include <optional>

namespace orvane::platform {

/// Images are measured at this many pixels along their longer side.
constexpr int kSceneImageSide = 192;

/// What can be measured of a picture without knowing what it shows. Shares run from 0 to 1.
struct SceneFeatures {
  // The whole picture.
  /// How colourful the more colourful pixels are: range of the channels, from 0 to 1.
  float colour = 0;
  /// How many levels of light are in use: entropy in bits, from 0 to 5.
  float tones = 0;
  /// Shares of the cells that have some detail, and that have not as much as noise.
  float detailed = 0;
  float smooth = 0;

  // Layout.
  /// The strongest straight, level edge through the picture: its share of the width.
  float horizon = 0;

  // Sky: blue or cloudy, smooth, and reached from the upper edge.
  float skyCover = 0;
  float skyBlue = 0;
  float skyTop = 0;
  /// How much paler the sky is at its foot than at its top; a lit wall keeps its saturation.
  float skyPaling = 0;
  /// How much a cell's saturation differs from its neighbours': clouds.
  float skyPatches = 0;
  /// How many shades it has: 0 for one, towards 1 for one in each cell. What is painted has few.
  float skyShades = 0;
  /// Share of the columns in which it ends at an edge.
  float skyEdge = 0;
  /// By how many cells its foot goes up or down from column to column.
  float skyRagged = 0;
  /// How far paler means lighter: -1 to 1.
  float skyWhitening = 0;

  // Ground: what lies below the sky.
  float groundCover = 0;
  /// How far it is an even surface of one tint with letters on it.
  float groundBlank = 0;
  float groundGreen = 0;
  float groundWhite = 0;
  float groundDark = 0;

  // Water: what lies just below the horizon.
  float waterCover = 0;
  /// How much stronger its detail is between above and below than between left and right.
  float waterWaves = 0;
  /// How uneven its light is along the horizon.
  float waterUneven = 0;

  // Evening.
  /// Share of the rows that glow over most of their width.
  float glowRows = 0;
  /// How much the share of red changes between these rows and the upper edge.
  float glowTints = 0;
  /// How much of the change of light is between the rows rather than within them.
  float glowRowwise = 0;
  /// Light of the lower third against the light of the glow.
  float glowGround = 0;

  // Night.
  float dark = 0;
  /// Points of light that stand alone in the upper half: their number, and their share of all
  /// points there.
  float stars = 0;
  float starsAlone = 0;

  // Plants.
  float greenCover = 0;
  float greenDetail = 0;
  /// Median and quartile distance of the hue, in degrees.
  float greenHue = 0;
  float greenVariety = 0;
};

/// Measures the picture; nothing when it is too small or too narrow to show a scene.
std::optional<SceneFeatures> measureScene(const RgbImage& image);

}  // namespace orvane::platform
