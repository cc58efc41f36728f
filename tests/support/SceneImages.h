#pragma once

#include <orvane/platform/internal/ImageReader.h>

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace orvane::testing {

class ScenePainter;

/// A kind of picture that is painted rather than photographed, in as many variants as there are
/// seeds: other colours, light, weather, layout, orientation, and the faults of a camera.
struct SceneKind {
  std::string_view name;
  /// What a classifier should see in it.
  std::vector<std::string_view> shows;
  /// What it may say as well.
  std::vector<std::string_view> maySay;
  void (*paint)(ScenePainter& painter);
};

/// Landscapes and skies, which show something.
std::span<const SceneKind> scenes();

/// What is easily mistaken for them, and shows nothing that a scene classifier knows.
std::span<const SceneKind> distractors();

/// The picture of this kind and seed, at most 192 pixels wide and high; the same on every machine.
platform::RgbImage paint(const SceneKind& kind, std::uint32_t seed);

}  // namespace orvane::testing
