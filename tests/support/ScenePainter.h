#pragma once

#include <orvane/platform/internal/ImageReader.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace orvane::testing {

struct Colour {
  float red = 0, green = 0, blue = 0;

  friend Colour operator*(Colour c, float f) { return {c.red * f, c.green * f, c.blue * f}; }
  friend Colour operator+(Colour a, Colour b) {
    return {a.red + b.red, a.green + b.green, a.blue + b.blue};
  }
};

/// Hue in degrees (any number of turns), saturation and value from 0 to 1.
Colour hsv(float hue, float saturation, float value);

inline Colour mix(Colour from, Colour to, float share) { return from * (1 - share) + to * share; }

/// From 0 at `from` to 1 at `to`, without corners.
inline float smoothStep(float from, float to, float x) {
  const float t = std::clamp((x - from) / (to - from), 0.0F, 1.0F);
  return t * t * (3 - 2 * t);
}

/// A canvas with a source of chance and of noise. Coordinates run from 0 to 1, from the top left.
class ScenePainter {
 public:
  /// What a change is limited to.
  struct Box {
    float left = 0, top = 0, right = 1, bottom = 1;
  };

  /// Width and height are drawn by chance: landscape, portrait and wide.
  explicit ScenePainter(std::uint32_t seed);

  [[nodiscard]] int width() const { return width_; }
  [[nodiscard]] float aspect() const {
    return static_cast<float>(width_) / static_cast<float>(height_);
  }

  /// A number between `low` and `high`.
  float any(float low, float high);
  bool chance(float probability) { return any(0, 1) < probability; }

  /// Fractal noise between 0 and 1, around 0.5, with details down to 2^-octaves of a unit.
  [[nodiscard]] float noise(float x, float y, int octaves, std::uint32_t layer = 0) const;

  /// Noise without any form, another one at each pixel.
  [[nodiscard]] float grain(float u, float v) const;

  /// Sets each pixel to what `colourAt(u, v)` gives.
  template <class ColourAt>
  void fill(ColourAt colourAt) {
    blend([](float, float) { return 1.0F; }, colourAt);
  }

  /// Covers the canvas as much as `coverAt(u, v)` says, from 0 to 1, with `colourAt(u, v)`.
  template <class CoverAt, class ColourAt>
  void blend(CoverAt coverAt, ColourAt colourAt, Box box = {}) {
    const int right = within(box.right, width_);
    const int bottom = within(box.bottom, height_);
    for (int y = within(box.top, height_); y < bottom; ++y) {
      for (int x = within(box.left, width_); x < right; ++x) {
        const float u = (static_cast<float>(x) + 0.5F) / static_cast<float>(width_);
        const float v = (static_cast<float>(y) + 0.5F) / static_cast<float>(height_);
        const float cover = coverAt(u, v);
        if (cover <= 0) continue;
        auto& pixel = pixels_[static_cast<std::size_t>(y * width_ + x)];
        pixel = cover >= 1 ? colourAt(u, v) : mix(pixel, colourAt(u, v), cover);
      }
    }
  }

  void rectangle(float left, float top, float right, float bottom, Colour colour);
  void ellipse(float x, float y, float radiusX, float radiusY, Colour colour, float softness = .1F);

  /// Leaves only the light of each colour, with its contrast changed by this factor.
  void desaturate(float contrast);

  /// Exposure, white balance, darker corners and the noise of a sensor.
  void photograph();

  [[nodiscard]] platform::RgbImage image() const;

 private:
  static int within(float position, int size) {
    return std::clamp(static_cast<int>(position * static_cast<float>(size)), 0, size);
  }
  [[nodiscard]] float lattice(int x, int y, std::uint32_t layer) const;

  std::uint64_t state_;
  std::uint32_t seed_;
  int width_;
  int height_;
  bool grey_ = false;
  std::vector<Colour> pixels_;
};

}  // namespace orvane::testing
