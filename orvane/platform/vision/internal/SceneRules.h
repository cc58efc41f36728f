#pragma once

#include <orvane/platform/vision/ImageClassifier.h>
#include <orvane/platform/vision/internal/SceneFeatures.h>

#include <vector>

namespace orvane::platform {

/// What the features tell: nothing, or `sky` and `outdoor`, as sure as the weakest condition of the
/// sky. A pure function.
std::vector<ClassificationObservation> recogniseScenes(const SceneFeatures& features);

}  // namespace orvane::platform
