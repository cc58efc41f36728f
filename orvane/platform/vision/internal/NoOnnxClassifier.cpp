#include <orvane/platform/vision/OnnxClassifier.h>

// Stands in for OnnxClassifier.cpp where the library is built without OpenCV.

namespace orvane {
namespace {

std::unexpected<Error> builtWithout() {
  return std::unexpected(Error(kOnnxErrorDomain, static_cast<int>(OnnxProblem::unavailable),
                               "The library was built without support for ONNX models"));
}

}  // namespace

struct OnnxClassifier::Model {};

OnnxClassifier::OnnxClassifier(std::unique_ptr<Model> model) : model_(std::move(model)) {}

OnnxClassifier::~OnnxClassifier() = default;

Result<std::shared_ptr<const OnnxClassifier>> OnnxClassifier::open(const std::filesystem::path&) {
  return builtWithout();
}

Result<std::vector<ClassificationObservation>> OnnxClassifier::classify(
    const std::filesystem::path&) const {
  return builtWithout();
}

}  // namespace orvane
