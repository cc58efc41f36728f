#pragma once

#include <orvane/Error.h>

#include <filesystem>
#include <string>
#include <vector>

namespace orvane {

/// One thing that a classifier sees in an image.
struct ClassificationObservation {
  /// English, lower case, words joined by "_": "water_body".
  std::string identifier;
  /// From 0 to 1.
  float confidence = 0.0F;

  bool operator==(const ClassificationObservation&) const = default;
};

/// Says what an image shows. A host may bring its own and name it in `HostOptions`.
///
/// Any thread may call `classify`, several at once.
class ImageClassifier {
 public:
  virtual ~ImageClassifier() = default;

  /// Looks at the image file. Blocks for the decoding and the computation. The observations come in
  /// the classifier's own order, and are none when it recognises nothing. A file that cannot be
  /// read or is no image gives an error whose description says so to people. The engine's own
  /// classifiers fail with the POSIX error ECANCELED when the process exits, whoever asks them.
  [[nodiscard]] virtual Result<std::vector<ClassificationObservation>> classify(
      const std::filesystem::path& image) const = 0;

 protected:
  ImageClassifier() = default;
  ImageClassifier(const ImageClassifier&) = default;
  ImageClassifier& operator=(const ImageClassifier&) = default;
};

}  // namespace orvane
