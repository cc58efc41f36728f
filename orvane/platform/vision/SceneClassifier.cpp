#include <orvane/platform/vision/SceneClassifier.h>

#include <orvane/platform/images/ImageReader.h>
#include <orvane/platform/vision/internal/SceneFeatures.h>
#include <orvane/platform/vision/internal/SceneRules.h>

namespace orvane {

Result<std::vector<ClassificationObservation>> SceneClassifier::classify(
    const std::filesystem::path& image) const {
  using namespace platform;
  const auto copy = readImage(image, kSceneImageSide, kSceneImageSide, ImageFit::inside);
  if (!copy) return std::unexpected(copy.error());
  const auto features = measureScene(*copy);
  if (!features) return {};
  return recogniseScenes(*features);
}

}  // namespace orvane
