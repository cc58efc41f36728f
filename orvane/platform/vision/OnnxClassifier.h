#pragma once

#include <orvane/platform/vision/ImageClassifier.h>

#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

namespace orvane {

/// Domain of `OnnxClassifier`'s own errors; their codes are the values of `OnnxProblem`.
inline constexpr std::string_view kOnnxErrorDomain = "OnnxClassifier";

enum class OnnxProblem {
  description = 1,  ///< The description or the label file is malformed.
  model = 2,        ///< The model cannot be loaded, or does not do what the description says.
  computation = 3,  ///< The model failed on an image, or gave what is no number.
  unavailable = 4   ///< The module with OpenCV is not built, or not where it is looked for.
};

/// Classifies images with an ONNX model that the host brings.
///
/// A JSON file describes the model; files that it names lie beside it, unless their paths are
/// absolute:
///
///     {
///       "model": "scenes.onnx",
///       "labels": "scenes.txt",
///       "width": 224, "height": 224,
///       "fit": "cover",
///       "channels": "rgb",
///       "scale": 0.00392156862745098,
///       "mean": [0.485, 0.456, 0.406],
///       "std": [0.229, 0.224, 0.225],
///       "output": "softmax"
///     }
///
/// - `labels`: a text of one label in each line, in the order of the model's outputs. Of synonyms
///   with commas between them the first is taken, lower-cased, with "_" for its spaces.
/// - `width`, `height`: of the model's input, 1 to 2048, which is one image as 3 planes of floats.
/// - `fit`: "cover" (the middle of the image; when left out) or "stretch" (all of it, distorted).
/// - `channels`: "rgb" (when left out) or "bgr".
/// - `scale`, `mean`, `std`: a sample from 0 to 255 becomes (sample * scale - mean) / std, with the
///   last two in the order of `channels`. Left out: 1/255, zeros, ones.
/// - `output`: how outputs become confidences: "softmax", "sigmoid", or "none" when they already
///   are such, from 0 to 1.
///
/// Any thread may classify, several at once: each then has a copy of the network, kept for the
/// next. `open` loads OpenCV, and for the whole process tells it to compute on the calling thread
/// alone, so that the work has that thread's priority; a host that itself uses OpenCV may set
/// cv::setNumThreads after it as it likes.
class OnnxClassifier final : public ImageClassifier {
 public:
  /// Reads the description and everything that it names, and has the model compute once. Blocks for
  /// that. Fails with a POSIX error when a file cannot be read, and with the domain
  /// "OnnxClassifier"; each sentence names the file.
  [[nodiscard]] static Result<std::shared_ptr<const OnnxClassifier>> open(
      const std::filesystem::path& description);

  ~OnnxClassifier() override;
  OnnxClassifier(const OnnxClassifier&) = delete;
  OnnxClassifier& operator=(const OnnxClassifier&) = delete;

  /// An observation for each label, the most confident first.
  [[nodiscard]] Result<std::vector<ClassificationObservation>> classify(
      const std::filesystem::path& image) const override;

 private:
  struct Model;
  explicit OnnxClassifier(std::unique_ptr<Model> model);

  std::unique_ptr<Model> model_;
};

}  // namespace orvane
