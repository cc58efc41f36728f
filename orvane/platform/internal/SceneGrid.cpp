#include <orvane/platform/internal/SceneGrid.h>

#include <algorithm>
#include <cmath>

namespace orvane::platform {
namespace {

constexpr int kSide = SceneGrid::kCellSide;

struct Sums {
  float red = 0, green = 0, blue = 0;
  float light = 0;
  float across = 0, along = 0, detail = 0;
};

float hueOf(float red, float green, float blue, float highest, float range) {
  if (range <= 0) return 0;
  if (highest == red) return std::fmod(60 * (green - blue) / range + 360, 360.0F);
  if (highest == green) return 60 * (blue - red) / range + 120;
  return 60 * (red - green) / range + 240;
}

void addDetail(Sums& sums, const LightPlane& light, int x, int y) {
  const int left = std::max(x - 1, 0);
  const int right = std::min(x + 1, light.width - 1);
  const int above = std::max(y - 1, 0);
  const int below = std::min(y + 1, light.height - 1);
  const float here = light.at(x, y);
  const float across = here - (light.at(left, y) + light.at(right, y)) / 2;
  const float along = here - (light.at(x, above) + light.at(x, below)) / 2;
  sums.across += std::abs(across);
  sums.along += std::abs(along);
  sums.detail += std::abs(across + along) / 2;
}

SceneCell cellAt(const RgbImage& image, const LightPlane& light, int left, int top) {
  Sums sums;
  for (int y = top; y < top + kSide; ++y) {
    for (int x = left; x < left + kSide; ++x) {
      const auto* pixel =
          &image.pixels[3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) +
                             static_cast<std::size_t>(x))];
      sums.red += static_cast<float>(pixel[0]);
      sums.green += static_cast<float>(pixel[1]);
      sums.blue += static_cast<float>(pixel[2]);
      sums.light += light.at(x, y);
      addDetail(sums, light, x, y);
    }
  }
  constexpr float kShare = 1.0F / (kSide * kSide);
  const float highest = std::max({sums.red, sums.green, sums.blue});
  const float range = highest - std::min({sums.red, sums.green, sums.blue});
  const float sum = sums.red + sums.green + sums.blue;
  return {.hue = hueOf(sums.red, sums.green, sums.blue, highest, range),
          .saturation = highest > 0 ? range / highest : 0,
          .value = highest * kShare / 255,
          .light = sums.light * kShare,
          .redShare = sum > 0 ? sums.red / sum : 0,
          .greenShare = sum > 0 ? sums.green / sum : 0,
          .detail = sums.detail * kShare,
          .detailAcross = sums.across * kShare,
          .detailAlong = sums.along * kShare};
}

bool within(float value, float low, float high) { return value >= low && value <= high; }

}  // namespace

LightPlane lightOf(const RgbImage& image) {
  LightPlane plane{.width = image.width, .height = image.height, .values = {}};
  plane.values.reserve(image.pixels.size() / 3);
  for (std::size_t i = 0; i + 2 < image.pixels.size(); i += 3) {
    plane.values.push_back((.299F * static_cast<float>(image.pixels[i]) +
                            .587F * static_cast<float>(image.pixels[i + 1]) +
                            .114F * static_cast<float>(image.pixels[i + 2])) /
                           255);
  }
  return plane;
}

bool SceneCell::isBlue() const {
  return within(hue, 190, 245) && saturation >= .15F && value >= .3F && detail < .02F;
}

bool SceneCell::isCloud() const {
  const bool colourless = saturation < .12F || (saturation < .3F && within(hue, 180, 260));
  return colourless && value >= .5F && detail < .02F;
}

bool SceneCell::isWarm() const {
  return (hue <= 55 || hue >= 320) && saturation >= .3F && value >= .35F && detail < .02F;
}

bool SceneCell::isGreen() const {
  return within(hue, 58, 165) && saturation >= .15F && within(value, .06F, .92F);
}

bool SceneCell::isWhite() const {
  return value >= .6F && (saturation < .1F || (saturation < .33F && within(hue, 195, 250)));
}

bool SceneCell::isWater() const {
  return within(hue, 165, 250) && saturation >= .08F && value >= .12F;
}

SceneGrid::SceneGrid(const RgbImage& image, const LightPlane& light)
    : columns_(image.width / kSide), rows_(image.height / kSide) {
  cells_.reserve(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_));
  for (int row = 0; row < rows_; ++row) {
    for (int column = 0; column < columns_; ++column)
      cells_.push_back(cellAt(image, light, column * kSide, row * kSide));
  }
}

}  // namespace orvane::platform
