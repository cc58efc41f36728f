#include <orvane/platform/internal/SceneRules.h>

#include <algorithm>
#include <array>
#include <string>

namespace orvane::platform {
namespace {

/// One measure's say: against a rule up to `none`, for it from `full` on, doubtful in between.
/// `none` may be the larger one.
struct Condition {
  float SceneFeatures::* measure = nullptr;
  float none = 0;
  float full = 1;
};

struct Rule {
  std::string_view label;
  /// The confidence when everything speaks for it.
  float most;
  /// The label that must be recognised as well, or nothing.
  std::string_view given;
  std::array<Condition, 8> conditions;
};

using F = SceneFeatures;

// A rule is as sure as its weakest condition. Rules stand after those that they depend on.
constexpr Rule kRules[] = {
    {"black_and_white",
     .95F,
     "",
     {{{&F::colour, .06F, .03F},
       {&F::tones, 3, 3.6F},
       {&F::detailed, .02F, .06F},
       {&F::smooth, .1F, .25F}}}},
    {"sky",
     .9F,
     "",
     {{{&F::skyCover, .1F, .2F},
       {&F::skyBlue, .25F, .4F},
       {&F::skyTop, .4F, .7F},
       {&F::skyPaling, .03F, .1F},
       {&F::skyShades, .5F, .65F},
       {&F::skyWhitening, .75F, .9F},
       {&F::skyEdge, .3F, .5F},
       {&F::groundBlank, .2F, .08F}}}},
    {"sky",
     .85F,
     "",
     {{{&F::skyCover, .2F, .35F},
       {&F::skyBlue, .15F, .25F},
       {&F::skyTop, .5F, .8F},
       {&F::skyPatches, .01F, .02F},
       {&F::skyShades, .62F, .75F},
       {&F::skyWhitening, .88F, .95F}}}},
    {"clouds", .8F, "sky", {{{&F::skyPatches, .01F, .02F}}}},
    {"blue_sky", .88F, "sky", {{{&F::skyBlue, .3F, .55F}}}},
    {"sunset_sunrise",
     .85F,
     "",
     {{{&F::glowRows, .1F, .2F},
       {&F::glowTints, .04F, .09F},
       {&F::glowRowwise, .3F, .5F},
       {&F::glowGround, .6F, .45F}}}},
    {"night_sky",
     .85F,
     "",
     {{{&F::dark, .7F, .85F}, {&F::stars, 12, 25}, {&F::starsAlone, .3F, .45F}}}},
    {"grass",
     .85F,
     "sky",
     {{{&F::groundGreen, .5F, .75F}, {&F::groundCover, .15F, .3F}, {&F::groundDark, .1F, .04F}}}},
    // Under a clear sky only: between clouds, a bank of clouds looks like a hill of snow.
    {"snow",
     .8F,
     "sky",
     {{{&F::groundWhite, .6F, .85F},
       {&F::groundCover, .2F, .3F},
       {&F::skyPatches, .016F, .01F},
       {&F::skyEdge, .4F, .7F},
       {&F::skyRagged, .6F, .3F}}}},
    {"sea",
     .85F,
     "",
     {{{&F::horizon, .8F, .92F},
       {&F::waterCover, .6F, .8F},
       {&F::waterWaves, 1.1F, 1.4F},
       {&F::waterUneven, .06F, .03F}}}},
    {"vegetation",
     .8F,
     "",
     {{{&F::greenCover, .45F, .65F},
       {&F::greenDetail, .4F, .8F},
       {&F::greenVariety, 2, 3.5F},
       {&F::greenHue, 135, 125}}}},
    {"outdoor", .9F, "sky", {}},
};

float say(const Condition& condition, const SceneFeatures& features) {
  const float value = features.*condition.measure;
  return std::clamp((value - condition.none) / (condition.full - condition.none), 0.0F, 1.0F);
}

float confidenceOf(std::string_view label,
                   const std::vector<ClassificationObservation>& observations) {
  const auto found = std::ranges::find(observations, label, &ClassificationObservation::identifier);
  return found == observations.end() ? 0 : found->confidence;
}

}  // namespace

std::vector<ClassificationObservation> recogniseScenes(const SceneFeatures& features) {
  std::vector<ClassificationObservation> observations;
  for (const auto& rule : kRules) {
    float confidence = rule.most;
    if (!rule.given.empty())
      confidence = std::min(confidence, confidenceOf(rule.given, observations));
    for (const auto& condition : rule.conditions) {
      if (condition.measure)
        confidence = std::min(confidence, rule.most * say(condition, features));
    }
    if (confidence <= 0) continue;
    const auto known =
        std::ranges::find(observations, rule.label, &ClassificationObservation::identifier);
    if (known == observations.end())
      observations.push_back({std::string(rule.label), confidence});
    else
      known->confidence = std::max(known->confidence, confidence);
  }
  std::ranges::stable_sort(observations, std::ranges::greater{},
                           &ClassificationObservation::confidence);
  return observations;
}

std::vector<std::string_view> sceneLabels() {
  std::vector<std::string_view> labels;
  for (const auto& rule : kRules) {
    if (std::ranges::find(labels, rule.label) == labels.end()) labels.push_back(rule.label);
  }
  return labels;
}

}  // namespace orvane::platform
