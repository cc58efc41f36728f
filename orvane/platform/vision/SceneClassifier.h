#pragma once

#include <orvane/platform/vision/ImageClassifier.h>

namespace orvane {

/// Recognises the sky in a photograph taken by day: `sky` and `outdoor`. It needs no model and no
/// configuration. `docs/scene-classifier.md` says how often it finds them, and how often it is
/// right.
///
/// It is silent on everything else: there are no observations for a portrait, a room or a page.
/// Without state: any thread may call `classify`, several at once.
class SceneClassifier final : public ImageClassifier {
 public:
  /// Observations come by descending confidence. Blocks for decoding the file at a small size.
  [[nodiscard]] Result<std::vector<ClassificationObservation>> classify(
      const std::filesystem::path& image) const override;
};

}  // namespace orvane
