#pragma once

#include <orvane/platform/vision/ImageClassifier.h>
#include <orvane/platform/vision/internal/SceneFeatures.h>

#include <span>
#include <string_view>
#include <vector>

namespace orvane::platform {

/// What the features tell, by descending confidence. A pure function.
std::vector<ClassificationObservation> recogniseScenes(const SceneFeatures& features);

/// Every label that `recogniseScenes` may give.
std::vector<std::string_view> sceneLabels();

}  // namespace orvane::platform
