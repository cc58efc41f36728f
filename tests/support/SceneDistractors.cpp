#include "support/SceneImages.h"
#include "support/ScenePainter.h"

namespace orvane::testing {
namespace {

Colour anyColour(ScenePainter& p) { return hsv(p.any(0, 360), p.any(0, 1), p.any(.05F, 1)); }

Colour skyBlue(ScenePainter& p) { return hsv(p.any(195, 225), p.any(.3F, .8F), p.any(.5F, .95F)); }

void flatColour(ScenePainter& p) {
  const Colour colour = p.chance(.3F) ? hsv(0, 0, p.any(0, 1)) : anyColour(p);
  p.fill([=](float, float) { return colour; });
}

void whiteNoise(ScenePainter& p) {
  const float share = p.any(.2F, 1);
  const bool grey = p.chance(.5F);
  p.fill([=, &p](float u, float v) {
    const Colour noise{p.grain(u, v), p.grain(u + 2, v), p.grain(u, v + 2)};
    const Colour even{noise.red, noise.red, noise.red};
    return mix({.5F, .5F, .5F}, grey ? even : noise, share);
  });
}

/// In any two colours but blue: blue with a paler one is a sky with clouds.
void fractalNoise(ScenePainter& p) {
  const Colour from = hsv(p.any(-100, 180), p.any(0, 1), p.any(.05F, 1));
  const Colour to = hsv(p.any(-100, 180), p.any(0, 1), p.any(.05F, 1));
  const float scale = p.any(2, 12);
  p.fill([=, &p](float u, float v) {
    return mix(from, to, smoothStep(.2F, .8F, p.noise(u * scale, v * scale, 6)));
  });
}

void gradient(ScenePainter& p) {
  const Colour from = p.chance(.5F) ? skyBlue(p) : anyColour(p);
  const Colour to = p.chance(.5F) ? Colour{1, 1, 1} : anyColour(p);
  const bool radial = p.chance(.3F);
  const float slant = p.chance(.6F) ? 0 : p.any(0, 1);
  p.fill([=](float u, float v) {
    const float t = radial ? std::hypot(u - .5F, v - .5F) * 1.4F : std::lerp(v, u, slant);
    return mix(from, to, std::min(t, 1.0F));
  });
}

void lines(ScenePainter& p, Colour ink, float left, float top, float right, float bottom) {
  const float height = p.any(.02F, .035F);
  for (float y = top; y < bottom; y += height * 1.8F) {
    for (float x = left; x < right * p.any(.6F, 1);) {
      const float letter = p.any(.004F, .012F);
      p.rectangle(x, y + height * p.any(0, .4F), x + letter, y + height, ink);
      x += letter + (p.chance(.2F) ? .02F : .006F);
    }
  }
}

void page(ScenePainter& p) {
  const bool dark = p.chance(.4F);
  const float paper = dark ? p.any(.03F, .18F) : p.any(.75F, 1);
  const Colour tint = hsv(p.any(30, 230), p.any(0, .06F), paper);
  const float light = p.any(0, .25F);
  p.fill([=, &p](float u, float v) { return tint * (1 - light * p.noise(u, v, 2)); });
  lines(p, dark ? hsv(p.any(0, 360), p.any(0, .6F), .9F) : Colour{.1F, .1F, .12F}, .08F, .08F, .94F,
        .92F);
}

void screen(ScenePainter& p) {
  const Colour bar = p.chance(.6F) ? skyBlue(p) : anyColour(p);
  const bool fade = p.chance(.5F);
  const float height = p.any(.1F, .5F);
  const Colour body = p.chance(.7F) ? Colour{.97F, .97F, .98F} : hsv(p.any(0, 360), .3F, .6F);
  p.fill([=](float, float v) {
    if (v > height) return body;
    return fade ? mix(bar, {1, 1, 1}, .6F * v / height) : bar;
  });
  lines(p, {.2F, .2F, .25F}, .3F, height + .05F, .9F, .95F);
  for (float y = height + .06F; y < .9F; y += .15F)
    p.rectangle(.05F, y, .22F, y + .1F, anyColour(p));
}

void chart(ScenePainter& p) {
  p.fill([](float, float) { return Colour{1, 1, 1}; });
  for (float y = .1F; y < .9F; y += .1F) p.rectangle(.1F, y, .95F, y + .006F, {.85F, .85F, .85F});
  const float width = p.any(.03F, .1F);
  const Colour colour = p.chance(.5F) ? skyBlue(p) : anyColour(p);
  for (float x = .12F; x < .9F; x += width * 1.5F)
    p.rectangle(x, p.any(.1F, .8F), x + width, .9F, p.chance(.7F) ? colour : anyColour(p));
}

/// A painted wall: its light falls off, its plaster is rough, and below it may be a floor.
void wall(ScenePainter& p) {
  const float choice = p.any(0, 1);
  const Colour paint = choice < .5F    ? skyBlue(p)
                       : choice < .75F ? hsv(p.any(20, 50), p.any(.05F, .4F), p.any(.6F, .95F))
                                       : anyColour(p);
  const float lampX = p.any(-.2F, 1.2F);
  const float lampY = p.any(-.3F, .8F);
  const float fall = p.any(.1F, .6F);
  const float rough = p.any(0, .06F);
  p.fill([=, &p](float u, float v) {
    const float distance = std::hypot(u - lampX, v - lampY);
    return paint * (1.1F - fall * distance + rough * (p.noise(u * 40, v * 40, 3) - .5F));
  });
  if (p.chance(.3F)) return;
  const float floor = p.any(.6F, .85F);
  const bool grassy = p.chance(.25F);
  const Colour boards = grassy ? hsv(p.any(85, 130), p.any(.3F, .6F), p.any(.3F, .6F))
                               : hsv(p.any(18, 38), p.any(.2F, .6F), p.any(.3F, .7F));
  p.blend([=](float, float v) { return v > floor; },
          [=, &p](float u, float v) {
            return boards * (.8F + .4F * p.noise(u * 3 / v, v * 50, 4, 2));
          });
  p.rectangle(0, floor - .02F, 1, floor, {.92F, .92F, .9F});
  if (p.chance(.5F)) p.rectangle(.2F, .2F, .45F, .5F, anyColour(p));
}

void room(ScenePainter& p) {
  wall(p);
  const float sofa = p.any(.1F, .4F);
  const Colour cloth = anyColour(p);
  p.rectangle(sofa, .55F, sofa + .45F, .88F, cloth * .8F);
  p.rectangle(sofa + .04F, .68F, sofa + .41F, .8F, cloth);
  p.rectangle(.7F, .12F, .92F, .42F, p.chance(.5F) ? Colour{.97F, .98F, 1} : hsv(210, .3F, .9F));
  p.ellipse(.15F, .3F, .06F, .05F, {1, .93F, .75F}, .4F);
}

void cloth(ScenePainter& p) {
  const float hue = p.chance(.5F) ? p.any(80, 130) : p.any(0, 360);
  const float saturation = p.any(.3F, .8F);
  const float value = p.any(.35F, .85F);
  const float folds = p.any(0, .7F);
  const float weave = p.any(.05F, .3F);
  const float plaid = p.chance(.3F) ? p.any(.1F, .4F) : 0;
  p.fill([=, &p](float u, float v) {
    const float fold = p.noise(u * 3 + v, v * 2, 3) - .5F;
    const float thread = p.grain(u, v) - .5F;
    const float square =
        (std::fmod(u * 7, 1.0F) < .3F ? 1.0F : 0) + (std::fmod(v * 7, 1.0F) < .3F ? 1.0F : 0);
    return hsv(hue, saturation, value * (1 + folds * fold + weave * thread - plaid * square));
  });
}

void circuitBoard(ScenePainter& p) {
  const float hue = p.any(142, 160);
  const float saturation = p.any(.4F, .8F);
  const float value = p.any(.25F, .5F);
  p.fill([=, &p](float u, float v) {
    const float tint = p.noise(u * 6, v * 6, 2) - .5F;
    return hsv(hue + 30 * tint, saturation, value * (.7F + .6F * p.grain(u, v)));
  });
  for (int parts = static_cast<int>(p.any(3, 12)); parts > 0; --parts) {
    const float x = p.any(0, .9F);
    const float y = p.any(0, .9F);
    p.rectangle(x, y, x + p.any(.03F, .1F), y + p.any(.03F, .1F), hsv(0, 0, p.any(.05F, .8F)));
  }
}

void bricks(ScenePainter& p) {
  const float hue = p.any(5, 35);
  const float saturation = p.any(.3F, .65F);
  p.fill([=, &p](float u, float v) {
    const auto row = std::floor(v * 14);
    const float x = u * 6 + (std::fmod(row, 2.0F) < 1 ? .5F : 0.0F);
    const bool mortar = std::fmod(v * 14, 1.0F) < .12F || std::fmod(x, 1.0F) < .06F;
    const float brick = p.noise(std::floor(x) * 5.3F, row * 3.7F, 1);
    const float rough = p.noise(u * 40, v * 40, 3, 2);
    return mortar ? Colour{.75F, .73F, .7F} * (.8F + .3F * rough)
                  : hsv(hue + 10 * brick, saturation, .35F + .3F * brick + .2F * rough);
  });
}

void planks(ScenePainter& p) {
  const float hue = p.any(18, 42);
  const float saturation = p.any(.25F, .7F);
  const float value = p.any(.35F, .9F);
  const bool upright = p.chance(.5F);
  p.fill([=, &p](float u, float v) {
    if (upright) std::swap(u, v);
    const float grain = p.noise(u * 3, v * 60, 4);
    const bool gap = std::fmod(v * 5, 1.0F) < .03F;
    return hsv(hue, saturation, gap ? .1F : value * (.7F + .5F * grain));
  });
}

void portrait(ScenePainter& p) {
  const float choice = p.any(0, 1);
  if (choice < .3F) {
    wall(p);
  } else {
    const Colour back = choice < .6F ? hsv(p.any(80, 140), .5F, .45F) : anyColour(p);
    p.fill([=, &p](float u, float v) { return back * (.7F + .6F * p.noise(u * 3, v * 3, 2)); });
  }
  const Colour skin = hsv(p.any(12, 30), p.any(.25F, .6F), p.any(.35F, .95F));
  const Colour hair = hsv(p.any(10, 40), p.any(.2F, .7F), p.any(.05F, .6F));
  const float x = p.any(.35F, .65F);
  const float size = p.any(.14F, .24F);
  const float y = p.any(.38F, .5F);
  p.ellipse(x, 1.05F, size * 2, .42F, anyColour(p));
  p.ellipse(x, y - .08F, size * 1.2F, size * 1.35F, hair, .2F);
  p.ellipse(x, y + size, size * .5F, size, skin * .85F);
  p.ellipse(x, y, size, size * 1.3F, skin, .08F);
  for (const float side : {-1.0F, 1.0F}) {
    p.ellipse(x + side * size * .4F, y - .03F, size * .16F, size * .1F, {.95F, .95F, .95F});
    p.ellipse(x + side * size * .4F, y - .03F, size * .07F, size * .09F, hair * .5F);
  }
  p.ellipse(x, y + size * .6F, size * .35F, size * .1F, hsv(355, .55F, .6F));
}

void flower(ScenePainter& p) {
  const Colour back = p.chance(.5F) ? hsv(p.any(80, 130), .5F, .35F) : anyColour(p) * .6F;
  p.fill([=, &p](float u, float v) { return back * (.6F + .8F * p.noise(u * 2, v * 2, 2)); });
  const float hue = p.any(-30, 55);
  const float petals = std::floor(p.any(5, 14));
  const float radius = p.any(.3F, .7F);
  const float turn = p.any(0, 6);
  p.blend(
      [=](float u, float v) {
        const float angle = std::atan2(v - .5F, u - .5F) * petals + turn;
        return smoothStep(.02F, -.02F,
                          std::hypot(u - .5F, v - .5F) - radius * (.7F + .3F * std::cos(angle)));
      },
      [=, &p](float u, float v) {
        const float angle = std::atan2(v - .5F, u - .5F) * petals + turn;
        return hsv(hue + 10 * std::cos(angle), .85F,
                   .6F + .3F * std::cos(angle) + .2F * p.noise(u * 9, v * 9, 3));
      });
  p.ellipse(.5F, .5F, .09F, .09F * p.aspect(), hsv(p.any(30, 50), .8F, p.any(.2F, .8F)), .3F);
}

/// Lit windows, lamps and their halos under a black sky without stars.
void cityNight(ScenePainter& p) {
  const Colour dark = hsv(p.any(200, 300), p.any(.1F, .6F), p.any(.02F, .12F));
  p.fill([=](float, float) { return dark; });
  for (int count = static_cast<int>(p.any(20, 150)); count > 0; --count) {
    const float size = p.any(.004F, .02F);
    const float x = p.any(0, 1);
    p.ellipse(x, p.any(.45F, 1), size, size * p.aspect(), hsv(p.any(20, 60), p.any(.2F, .8F), 1),
              .8F);
  }
}

void darkNoise(ScenePainter& p) {
  const float level = p.any(.01F, .1F);
  p.fill([=, &p](float u, float v) {
    return Colour{p.grain(u, v), p.grain(u + 2, v), p.grain(u, v + 2)} * (level * 2);
  });
}

void logo(ScenePainter& p) {
  const Colour back = p.chance(.5F) ? skyBlue(p) : Colour{1, 1, 1};
  const Colour sign = p.chance(.5F) ? skyBlue(p) : anyColour(p);
  p.fill([=](float, float) { return back; });
  p.ellipse(.5F, .45F, .3F, .3F * p.aspect(), sign, .02F);
  p.ellipse(.5F, .45F, .2F, .2F * p.aspect(), p.chance(.5F) ? back : anyColour(p), .02F);
  p.rectangle(.25F, .8F, .75F, .9F, sign);
}

void scannedPage(ScenePainter& p) {
  page(p);
  p.desaturate(1);
}

void greyGradient(ScenePainter& p) {
  gradient(p);
  p.desaturate(1);
}

void greyNoise(ScenePainter& p) {
  whiteNoise(p);
  p.desaturate(1);
}

const SceneKind kDistractors[] = {
    {"flat colour", {}, {}, flatColour},
    {"white noise", {}, {}, whiteNoise},
    {"grey noise", {}, {}, greyNoise},
    {"fractal noise", {}, {}, fractalNoise},
    {"dark noise", {}, {}, darkNoise},
    {"gradient", {}, {}, gradient},
    {"grey gradient", {}, {}, greyGradient},
    {"page of text", {}, {}, page},
    {"scanned page", {}, {}, scannedPage},
    {"screen", {}, {}, screen},
    {"chart", {}, {}, chart},
    {"logo", {}, {}, logo},
    {"wall", {}, {}, wall},
    {"room", {}, {}, room},
    {"cloth", {}, {}, cloth},
    {"bricks", {}, {}, bricks},
    {"planks", {}, {}, planks},
    {"circuit board", {}, {}, circuitBoard},
    {"portrait", {}, {}, portrait},
    {"flower", {}, {}, flower},
    {"city at night", {}, {}, cityNight},
};

}  // namespace

std::span<const SceneKind> distractors() { return kDistractors; }

}  // namespace orvane::testing
