#include <orvane/platform/vision/internal/SceneRules.h>

#include <algorithm>

namespace orvane::platform {
namespace {

/// Scores a feature: 0 at `zeroAt`, 1 at `oneAt`, linear between. `zeroAt` may be the larger one.
struct Condition {
  float SceneFeatures::* feature;
  float zeroAt;
  float oneAt;
};

using F = SceneFeatures;

// At a confidence of 0.7, the threshold is seven ninths of the way from `zeroAt` to `oneAt`.
constexpr Condition kSky[] = {
    {&F::skyTop, .4F, .85F},        // Nearly the whole upper edge,
    {&F::skyBlue, 0, .045F},        // blue somewhere: no white wall,
    {&F::skyDetail, .02F, .007F},   // as smooth as air,
    {&F::skyBottom, .45F, 0},       // not down to the lower edge: no wall, backdrop or page,
    {&F::groundFlat, .3F, .107F}};  // above what is not as even as a drawing.

float score(const Condition& condition, const SceneFeatures& features) {
  const float value = features.*condition.feature;
  return std::clamp((value - condition.zeroAt) / (condition.oneAt - condition.zeroAt), 0.0F, 1.0F);
}

}  // namespace

std::vector<ClassificationObservation> recogniseScenes(const SceneFeatures& features) {
  constexpr float kMostConfident = .9F;
  float confidence = kMostConfident;
  for (const auto& condition : kSky) {
    confidence = std::min(confidence, kMostConfident * score(condition, features));
  }
  if (confidence <= 0) return {};
  return {{"sky", confidence}, {"outdoor", confidence}};
}

}  // namespace orvane::platform
