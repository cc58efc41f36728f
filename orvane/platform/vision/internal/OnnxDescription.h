#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/images/ImageReader.h>
#include <orvane/platform/vision/OnnxClassifier.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace orvane::platform {

/// What the JSON file beside an ONNX model says; see `OnnxClassifier`.
struct OnnxDescription {
  enum class Output { softmax, sigmoid, none };

  std::filesystem::path model;
  std::vector<std::string> labels;  ///< Lower case, words joined by "_".
  int width = 0;
  int height = 0;
  platform::ImageFit fit = platform::ImageFit::cover;
  bool isBgr = false;
  double scale = 1.0 / 255;
  std::array<double, 3> mean{0, 0, 0};
  std::array<double, 3> deviation{1, 1, 1};
  Output output = Output::none;
};

/// The sentence begins with the name of the file that is meant.
[[nodiscard]] Error onnxError(OnnxProblem problem, const std::filesystem::path& file,
                              const std::string& sentence);

/// The whole content of a file, or the POSIX error with the file's name before its sentence.
[[nodiscard]] Result<SharedBytes> readNamed(const std::filesystem::path& file);

/// Reads the description and its label file; the model is not looked at.
[[nodiscard]] Result<OnnxDescription> readOnnxDescription(const std::filesystem::path& file);

}  // namespace orvane::platform
