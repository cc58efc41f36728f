#include <orvane/platform/vision/internal/SceneRules.h>

#include <algorithm>
#include <array>
#include <string>

namespace orvane::platform {
namespace {

/// Scores a feature: 0 at `zeroAt`, 1 at `oneAt`, linear between. `zeroAt` may be the larger one.
struct Condition {
  float SceneFeatures::* feature = nullptr;
  float zeroAt = 0;
  float oneAt = 1;
};

/// A rule is as sure as its weakest condition, and at most `kMostConfident`.
struct Rule {
  std::string_view label;
  /// The label that must be recognised as well, or nothing. Its rule stands above.
  std::string_view given;
  std::array<Condition, 5> conditions;
};

constexpr float kMostConfident = .9F;

using F = SceneFeatures;

// At a confidence of 0.7, the threshold is seven ninths of the way from `zeroAt` to `oneAt`.
constexpr Rule kRules[] = {
    {"sky",
     "",
     {{{&F::skyTop, .4F, .85F},         // Nearly the whole upper edge,
       {&F::skyBlue, 0, .045F},         // blue somewhere: no white wall,
       {&F::skyDetail, .02F, .007F},    // as smooth as air,
       {&F::groundCover, .1F, .2F},     // above something: no backdrop or blue page,
       {&F::groundFlat, .3F, .13F}}}},  // which is not as even as a drawing.
    {"outdoor", "sky", {}},
    {"blue_sky", "sky", {{{&F::skySaturation, .14F, .34F}}}},
};

float score(const Condition& condition, const SceneFeatures& features) {
  const float value = features.*condition.feature;
  return std::clamp((value - condition.zeroAt) / (condition.oneAt - condition.zeroAt), 0.0F, 1.0F);
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
    float confidence = rule.given.empty() ? kMostConfident : confidenceOf(rule.given, observations);
    for (const auto& condition : rule.conditions) {
      if (condition.feature)
        confidence = std::min(confidence, kMostConfident * score(condition, features));
    }
    if (confidence > 0) observations.push_back({std::string(rule.label), confidence});
  }
  std::ranges::stable_sort(observations, std::ranges::greater{},
                           &ClassificationObservation::confidence);
  return observations;
}

std::vector<std::string_view> sceneLabels() {
  std::vector<std::string_view> labels;
  for (const auto& rule : kRules) labels.push_back(rule.label);
  return labels;
}

}  // namespace orvane::platform
