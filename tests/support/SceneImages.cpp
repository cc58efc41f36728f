#include "support/SceneImages.h"

#include <utility>

#include "support/ScenePainter.h"

namespace orvane::testing {
namespace {

/// The height of a horizon with hills: 0 is flat.
struct Horizon {
  float height;
  float hills;
  float at(const ScenePainter& p, float u, std::uint32_t layer = 1) const {
    return hills == 0 ? height : height - hills * (p.noise(u * 3, 7, 5, layer) - .4F);
  }
};

void clearSky(ScenePainter& p, float horizon) {
  const float hue = p.any(203, 223);
  const Colour zenith = hsv(hue, p.any(.45F, .85F), p.any(.5F, .92F));
  const Colour low = mix(zenith, hsv(hue - 8, p.any(.06F, .2F), .96F), p.any(.55F, .95F));
  const float bend = p.any(1, 2);
  p.fill([=](float, float v) {
    return mix(zenith, low, std::pow(std::min(v / horizon, 1.0F), bend));
  });
}

void clouds(ScenePainter& p, float horizon, float share) {
  const float scale = p.any(2, 5);
  const float edge = p.any(.06F, .2F);
  const float level = .62F - share * .3F;
  const auto cloud = [=, &p](float u, float v) {
    return p.noise(u * scale * p.aspect(), v * scale * 2 + v * v, 6, 2);
  };
  p.blend([=](float u, float v) { return smoothStep(level, level + edge, cloud(u, v)); },
          [=](float u, float v) {
            const float shade = smoothStep(level, level + .35F, cloud(u, v + .03F));
            return mix({.98F, .98F, .98F}, {.66F, .69F, .74F}, shade * .8F + v / horizon * .1F);
          });
}

void greySky(ScenePainter& p) {
  const float light = p.any(.55F, .88F);
  const Colour tint = hsv(p.any(200, 230), p.any(.02F, .1F), 1);
  p.fill([=, &p](float u, float v) {
    return tint * (light + .2F * (p.noise(u * 2, v * 5, 4, 2) - .5F) + .06F * v);
  });
}

/// A low sun behind the horizon or above it: a band of glow, streaks of cloud lit from below.
void eveningSky(ScenePainter& p, float horizon) {
  const Colour low = hsv(p.any(22, 46), p.any(.65F, .95F), p.any(.92F, 1));
  const Colour middle = hsv(p.any(-8, 20), p.any(.5F, .8F), p.any(.6F, .85F));
  const Colour top = hsv(p.any(220, 285), p.any(.3F, .6F), p.any(.22F, .5F));
  const float sun = p.any(.2F, .8F);
  const float streaks = p.chance(.6F) ? p.any(.3F, .9F) : 0;
  const Colour cloud = mix(top * .6F, middle, p.any(0, .6F));
  p.fill([=, &p](float u, float v) {
    const float t = std::clamp(1 - v / horizon + .15F * std::abs(u - sun), 0.0F, 1.0F);
    const Colour sky = t < .45F ? mix(low, middle, t / .45F) : mix(middle, top, (t - .45F) / .55F);
    return mix(sky, cloud, streaks * smoothStep(.5F, .75F, p.noise(u * 3, v * 14, 5, 2)));
  });
  if (p.chance(.6F))
    p.ellipse(sun, horizon - p.any(-.02F, .15F), .04F, .04F * p.aspect(), {1, .97F, .8F}, .6F);
}

void stars(ScenePainter& p, float horizon) {
  const Colour dark = hsv(p.any(205, 255), p.any(.2F, .8F), p.any(.015F, .12F));
  const float glow = p.any(0, .12F);
  const bool milky = p.chance(.4F);
  const float slope = p.any(-1, 1);
  p.fill([=, &p](float u, float v) {
    const float band = milky ? std::exp(-20 * std::pow(u - .5F + slope * (v - .4F), 2.0F)) : 0;
    const float cloud = band * .25F * p.noise(u * 5, v * 5, 5, 2);
    return dark + Colour{cloud, cloud, cloud * 1.1F} + Colour{.5F, .6F, .8F} * (glow * v);
  });
  const int count = static_cast<int>(p.any(70, 400));
  for (int i = 0; i < count; ++i) {
    const float brightness = .2F + .8F * std::pow(p.any(0, 1), 2.0F);
    const float size = (brightness > .8F ? .006F : .0035F);
    const float x = p.any(0, 1);
    p.ellipse(x, p.any(0, horizon), size, size * p.aspect(),
              hsv(p.any(0, 360), p.any(0, .2F), brightness), .5F);
  }
}

template <class ColourAt>
void ground(ScenePainter& p, Horizon horizon, ColourAt colourAt) {
  std::vector<float> edges;
  for (int x = 0; x < p.width(); ++x)
    edges.push_back(horizon.at(p, static_cast<float>(x) / static_cast<float>(p.width())));
  const auto below = [edges = std::move(edges)](float u, float v) {
    return v - edges[static_cast<std::size_t>(u * static_cast<float>(edges.size()))];
  };
  p.blend([&](float u, float v) { return smoothStep(-.004F, .004F, below(u, v)); },
          [&](float u, float v) {
            return colourAt(u, v, std::max(below(u, v) / (1 - horizon.height + .01F), 0.0F));
          });
}

void meadow(ScenePainter& p, Horizon horizon) {
  const float hue = p.any(72, 115);
  const float saturation = p.any(.4F, .75F);
  const float value = p.any(.35F, .7F);
  const float contrast = p.any(.3F, .7F);
  const bool flowers = p.chance(.3F);
  ground(p, horizon, [=, &p](float u, float v, float depth) {
    const float near = .15F + depth;
    const float blades = p.noise(u * 60 / near, v * 40 / near, 3, 3) - .5F;
    const float patches = p.noise(u * 4, v * 8 / near, 3, 4) - .5F;
    if (flowers && p.grain(u, v) > 1 - .02F * depth) return Colour{.95F, .9F, .5F};
    return hsv(hue + 30 * patches + 14 * blades, saturation * (1 - .4F * blades),
               value * (1 + contrast * (blades * (.5F + depth) + patches)));
  });
}

void water(ScenePainter& p, Horizon horizon, Colour deep, Colour light) {
  const float waves = p.any(.5F, 1.2F);
  const float glints = p.chance(.4F) ? .62F : 2;
  ground(p, horizon, [=, &p](float u, float v, float depth) {
    const float near = .04F + depth;
    const float wave = p.noise(u * 4 / near, 22 * std::log(near), 4, 3);
    const Colour sea = mix(mix(light, deep, std::min(depth * 3, 1.0F)), light,
                           waves * std::max(wave - .45F, 0.0F) * 1.6F);
    return mix(sea, {1, 1, 1}, .5F * smoothStep(glints, glints + .1F, wave) * (v > 0));
  });
}

void sea(ScenePainter& p, Horizon horizon) {
  const float hue = p.any(188, 222);
  water(p, horizon, hsv(hue, p.any(.4F, .85F), p.any(.25F, .6F)),
        hsv(hue, p.any(.2F, .4F), p.any(.6F, .85F)));
}

void snow(ScenePainter& p, Horizon horizon) {
  const Colour shadow = hsv(p.any(208, 225), p.any(.15F, .35F), p.any(.55F, .75F));
  const float relief = p.any(3, 7);
  ground(p, horizon, [=, &p](float u, float v, float) {
    const float slope = p.noise(u * relief, v * relief * 2, 5, 3) -
                        p.noise(u * relief - .12F, v * relief * 2 - .1F, 5, 3);
    return mix({.97F, .97F, .99F}, shadow, smoothStep(-.02F, .16F, slope));
  });
}

void beach(ScenePainter& p, float horizon) {
  sea(p, {horizon, 0});
  const float shore = horizon + (1 - horizon) * p.any(.25F, .5F);
  const float slant = p.any(-.25F, .25F);
  const float hue = p.any(28, 42);
  const float saturation = p.any(.2F, .45F);
  const float value = p.any(.72F, .92F);
  const auto edge = [=, &p](float u, float v) {
    return v - shore - slant * (u - .5F) - .03F * (p.noise(u * 6, 3, 4, 5) - .5F);
  };
  p.blend([=](float u, float v) { return smoothStep(-.05F, -.03F, edge(u, v)); },
          [](float, float) { return Colour{.95F, .97F, .97F}; });
  p.blend([=](float u, float v) { return smoothStep(-.01F, .01F, edge(u, v)); },
          [=, &p](float u, float v) {
            const float wet = .72F + .28F * smoothStep(0, .12F, edge(u, v));
            const float steps = .2F * (p.noise(u * 30, v * 40, 3, 6) - .5F);
            return hsv(hue, saturation, value * (wet + steps));
          });
}

/// Crowns of leaves with dark gaps between them, which fill what lies above `bottom`.
void foliage(ScenePainter& p, float top, float bottom, float gaps) {
  const float hue = p.any(78, 125);
  const float value = p.any(.3F, .6F);
  const float size = p.any(14, 30);
  p.blend(
      [=, &p](float u, float v) {
        return smoothStep(0, .03F, v - top + .3F * (p.noise(u * 5, v * 5, 5, 6) - .5F)) *
               (v < bottom);
      },
      [=, &p](float u, float v) {
        const float leaf = p.noise(u * size * p.aspect(), v * size, 4, 7);
        const float crown = p.noise(u * 4 * p.aspect(), v * 4, 3, 8);
        const float light = std::max(.08F, smoothStep(gaps, 1, .5F * leaf + .5F * crown) * 1.8F);
        return hsv(hue - 20 * light + 30 * (leaf - .5F), .75F - .3F * light, value * light);
      });
}

void houses(ScenePainter& p, float horizon) {
  p.rectangle(0, horizon, 1, 1, hsv(p.any(0, 60), .08F, p.any(.3F, .6F)));
  for (float x = -.05F; x < 1;) {
    const float width = p.any(.08F, .2F);
    const float top = horizon - p.any(.03F, .25F);
    const Colour wall = hsv(p.any(5, 45), p.any(.05F, .5F), p.any(.4F, .85F));
    p.rectangle(x, top, x + width, p.any(.9F, 1), wall);
    for (float y = top + .03F; y < .9F; y += .07F) {
      for (float w = x + .02F; w < x + width - .02F; w += .045F)
        p.rectangle(w, y, w + .022F, y + .035F, wall * p.any(.2F, .6F));
    }
    x += width * p.any(.9F, 1.1F);
  }
}

void silhouette(ScenePainter& p, Horizon horizon) {
  const Colour dark = hsv(p.any(0, 360), p.any(0, .4F), p.any(.01F, .09F));
  ground(p, horizon, [=, &p](float u, float v, float) {
    return dark * (.6F + .8F * p.noise(u * 20, v * 20, 3, 3));
  });
}

/// Somebody or something that stands in the picture.
void bystander(ScenePainter& p, float horizon) {
  if (!p.chance(.3F)) return;
  const float x = p.any(.1F, .9F);
  const float y = p.any(horizon + .05F, .9F);
  const float size = p.any(.02F, .07F);
  p.ellipse(x, y, size, size * 2.5F, hsv(p.any(0, 360), p.any(.2F, .9F), p.any(.1F, .8F)));
  p.ellipse(x, y - size * 3, size * .5F, size * .6F * p.aspect(), hsv(20, .4F, .75F));
}

Horizon hilly(ScenePainter& p) { return {p.any(.3F, .7F), p.any(.05F, .35F)}; }
Horizon flat(ScenePainter& p) { return {p.any(.3F, .65F), 0}; }

void daySky(ScenePainter& p, float horizon) {
  clearSky(p, horizon);
  if (p.chance(.6F)) clouds(p, horizon, p.any(0, .7F));
}

template <auto Sky, auto Land, auto Line>
void landscape(ScenePainter& p) {
  const Horizon horizon = Line(p);
  Sky(p, horizon.height);
  Land(p, horizon);
  bystander(p, horizon.height);
}

void paintHouses(ScenePainter& p) {
  const float horizon = p.any(.45F, .75F);
  daySky(p, horizon);
  houses(p, horizon);
}

void paintBeach(ScenePainter& p) {
  const float horizon = p.any(.25F, .5F);
  daySky(p, horizon);
  beach(p, horizon);
  bystander(p, horizon);
}

void paintCumulus(ScenePainter& p) {
  clearSky(p, 1.2F);
  clouds(p, 1, p.any(.2F, .8F));
}

void paintTreesUnderSky(ScenePainter& p) {
  const float horizon = p.any(.4F, .7F);
  daySky(p, horizon + .1F);
  foliage(p, horizon, 1.1F, p.any(.2F, .35F));
}

void paintWood(ScenePainter& p) {
  p.fill([](float, float) { return Colour{.03F, .05F, .03F}; });
  foliage(p, -1, 1.1F, p.any(.15F, .3F));
  for (int trunks = static_cast<int>(p.any(0, 7)); trunks > 0; --trunks) {
    const float x = p.any(0, 1);
    const float width = p.any(.01F, .04F);
    p.rectangle(x, 0, x + width, p.any(.6F, .95F), hsv(p.any(15, 40), .4F, p.any(.1F, .25F)));
  }
}

void paintGrassNear(ScenePainter& p) { meadow(p, {p.any(-.5F, -.2F), 0}); }

void paintEveningSea(ScenePainter& p) {
  const float horizon = p.any(.4F, .7F);
  eveningSky(p, horizon);
  water(p, {horizon, 0}, hsv(p.any(230, 280), .35F, p.any(.1F, .25F)),
        hsv(p.any(10, 40), p.any(.4F, .7F), p.any(.5F, .8F)));
}

void greySkyAbove(ScenePainter& p, float) { greySky(p); }

void inGrey(ScenePainter& p, void (*scene)(ScenePainter&)) {
  scene(p);
  p.desaturate(p.any(.8F, 1.3F));
}

void paintGreyLandscape(ScenePainter& p) {
  inGrey(p, p.chance(.5F) ? paintHouses : landscape<daySky, meadow, hilly>);
}
void paintGreyWood(ScenePainter& p) { inGrey(p, paintTreesUnderSky); }

const std::vector<std::string_view> kSeaside{"sky", "blue_sky", "sea", "outdoor"};

const SceneKind kScenes[] = {
    {"meadow",
     {"sky", "blue_sky", "grass", "outdoor"},
     {"vegetation", "clouds"},
     landscape<daySky, meadow, hilly>},
    {"lawn under clear sky",
     {"sky", "blue_sky", "grass", "outdoor"},
     {"vegetation"},
     landscape<clearSky, meadow, flat>},
    {"houses", {"sky", "blue_sky", "outdoor"}, {"clouds"}, paintHouses},
    {"cumulus", {"sky", "blue_sky", "clouds"}, {"outdoor"}, paintCumulus},
    {"trees under sky",
     {"sky", "blue_sky", "outdoor"},
     {"vegetation", "clouds"},
     paintTreesUnderSky},
    {"sea", {"sky", "blue_sky", "sea", "outdoor"}, {"clouds"}, landscape<daySky, sea, flat>},
    {"grey sea", {"sea"}, {"sky", "outdoor", "clouds"}, landscape<greySkyAbove, sea, flat>},
    {"beach", {"sky", "blue_sky", "sea", "outdoor"}, {"clouds"}, paintBeach},
    {"snow", {"sky", "blue_sky", "snow", "outdoor"}, {}, landscape<clearSky, snow, hilly>},
    {"snow under clouds",
     {"sky", "blue_sky", "outdoor"},
     {"clouds", "snow"},
     landscape<daySky, snow, hilly>},
    {"sunset", {"sunset_sunrise"}, {"sky", "outdoor"}, landscape<eveningSky, silhouette, hilly>},
    {"sunset at sea", {"sunset_sunrise"}, {"sky", "sea", "outdoor"}, paintEveningSea},
    {"starry night", {"night_sky"}, {"outdoor"}, landscape<stars, silhouette, hilly>},
    {"wood", {"vegetation"}, {"forest"}, paintWood},
    {"grass", {"vegetation"}, {"grass"}, paintGrassNear},
    {"grey landscape", {"black_and_white"}, {}, paintGreyLandscape},
    {"grey trees", {"black_and_white"}, {}, paintGreyWood},
};

}  // namespace

std::span<const SceneKind> scenes() { return kScenes; }

platform::RgbImage paint(const SceneKind& kind, std::uint32_t seed) {
  ScenePainter painter(seed);
  kind.paint(painter);
  // Some of what is no scene is a drawing, and has no faults of a camera.
  if (!kind.shows.empty() || painter.chance(.7F)) painter.photograph();
  return painter.image();
}

}  // namespace orvane::testing
