#include "support/ScenePainter.h"

#include <array>

namespace orvane::testing {
namespace {

std::uint32_t scramble(std::uint32_t x) {
  x = (x ^ (x >> 16U)) * 0x7feb352dU;
  x = (x ^ (x >> 15U)) * 0x846ca68bU;
  return x ^ (x >> 16U);
}

float unit(std::uint32_t bits) { return static_cast<float>(bits >> 8U) / 16777216.0F; }

std::uint8_t toByte(float value) {
  return static_cast<std::uint8_t>(std::clamp(value, 0.0F, 1.0F) * 255.0F + 0.5F);
}

}  // namespace

Colour hsv(float hue, float saturation, float value) {
  const auto channel = [&](float shift) {
    const float k = std::fmod(std::fmod(shift + hue / 60, 6.0F) + 6, 6.0F);
    return value * (1 - saturation * std::clamp(std::min(k, 4 - k), 0.0F, 1.0F));
  };
  return {channel(5), channel(3), channel(1)};
}

ScenePainter::ScenePainter(std::uint32_t seed) : state_(seed), seed_(scramble(seed + 1)) {
  constexpr std::array<std::array<int, 2>, 6> kSizes{
      {{192, 144}, {192, 128}, {144, 192}, {192, 108}, {128, 192}, {192, 192}}};
  const auto size = kSizes[static_cast<std::size_t>(any(0, kSizes.size() - .01F))];
  width_ = size[0];
  height_ = size[1];
  pixels_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_));
}

float ScenePainter::any(float low, float high) {
  state_ = state_ * 6364136223846793005U + 1442695040888963407U;
  return low + (high - low) * unit(scramble(static_cast<std::uint32_t>(state_ >> 32U)));
}

float ScenePainter::lattice(int x, int y, std::uint32_t layer) const {
  return unit(scramble(static_cast<std::uint32_t>(x) * 0x9e3779b1U ^
                       (static_cast<std::uint32_t>(y) + layer * 7919U + seed_) * 0x85ebca77U));
}

float ScenePainter::noise(float x, float y, int octaves, std::uint32_t layer) const {
  const auto blend = [](float a, float b, float t) { return a + (b - a) * t * t * (3 - 2 * t); };
  float sum = 0;
  float weight = 0;
  for (float amplitude = 1; octaves > 0; --octaves, amplitude /= 2, x = x * 2 + 17, y = y * 2 + 5) {
    const int column = static_cast<int>(x) - (x < 0);
    const int row = static_cast<int>(y) - (y < 0);
    const float tx = x - static_cast<float>(column);
    const float ty = y - static_cast<float>(row);
    const float above = blend(lattice(column, row, layer), lattice(column + 1, row, layer), tx);
    const float below =
        blend(lattice(column, row + 1, layer), lattice(column + 1, row + 1, layer), tx);
    sum += amplitude * blend(above, below, ty);
    weight += amplitude;
  }
  return sum / weight;
}

float ScenePainter::grain(float u, float v) const {
  return lattice(static_cast<int>(u * 4096), static_cast<int>(v * 4096), 99);
}

void ScenePainter::rectangle(float left, float top, float right, float bottom, Colour colour) {
  blend([](float, float) { return 1.0F; }, [=](float, float) { return colour; },
        {left, top, right, bottom});
}

void ScenePainter::ellipse(float x, float y, float radiusX, float radiusY, Colour colour,
                           float softness) {
  const float reach = 1 + softness;
  blend(
      [=](float u, float v) {
        return smoothStep(reach, 1 - softness, std::hypot((u - x) / radiusX, (v - y) / radiusY));
      },
      [=](float, float) { return colour; },
      {x - radiusX * reach, y - radiusY * reach, x + radiusX * reach + .01F,
       y + radiusY * reach + .01F});
}

void ScenePainter::desaturate(float contrast) {
  grey_ = true;
  for (auto& pixel : pixels_) {
    const float light = .3F * pixel.red + .59F * pixel.green + .11F * pixel.blue;
    const float changed = .5F + (light - .5F) * contrast;
    pixel = {changed, changed, changed};
  }
}

void ScenePainter::photograph() {
  const float exposure = any(.8F, 1.15F);
  const Colour lamp{any(.94F, 1.06F), 1, any(.94F, 1.06F)};
  const Colour balance = (grey_ ? Colour{1, 1, 1} : lamp) * exposure;
  const float corners = any(0, .25F);
  const float sensor = any(.004F, .03F);
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      const float dx = static_cast<float>(x) / static_cast<float>(width_) - .5F;
      const float dy = static_cast<float>(y) / static_cast<float>(height_) - .5F;
      const float light = 1 - corners * (dx * dx + dy * dy) * 2;
      auto& [red, green, blue] = pixels_[static_cast<std::size_t>(y * width_ + x)];
      const auto noisy = [&](float value, std::uint32_t layer) {
        const float noise = lattice(x, y, layer) + lattice(x, y, layer + 3) - 1;
        return value + sensor * noise * (.5F + value / 2);
      };
      red = noisy(red * balance.red * light, 101);
      green = noisy(green * balance.green * light, grey_ ? 101 : 102);
      blue = noisy(blue * balance.blue * light, grey_ ? 101 : 103);
    }
  }
}

platform::RgbImage ScenePainter::image() const {
  platform::RgbImage image{.width = width_, .height = height_, .pixels = {}};
  image.pixels.reserve(pixels_.size() * 3);
  for (const auto& pixel : pixels_) {
    for (const float value : {pixel.red, pixel.green, pixel.blue})
      image.pixels.push_back(toByte(value));
  }
  return image;
}

}  // namespace orvane::testing
