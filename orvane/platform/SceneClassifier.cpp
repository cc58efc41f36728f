#include <orvane/platform/SceneClassifier.h>
#include <orvane/platform/internal/ImageReader.h>
#include <orvane/platform/internal/SceneFeatures.h>
#include <orvane/platform/internal/SceneRules.h>

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
