#pragma once

#include <orvane/platform/ImageClassifier.h>

namespace orvane {

/// Names the kind of landscape that an image shows, by its colours, its layout and its texture.
/// It needs no model and no configuration; `docs/scene-classifier.md` says what it can tell.
///
/// It is silent on everything else: observations are none for a portrait, a room or a page of text.
/// Without state: any thread may call `classify`, several at once.
class SceneClassifier final : public ImageClassifier {
 public:
  /// Observations come by descending confidence. Blocks for decoding the file at a small size.
  [[nodiscard]] Result<std::vector<ClassificationObservation>> classify(
      const std::filesystem::path& image) const override;
};

}  // namespace orvane
