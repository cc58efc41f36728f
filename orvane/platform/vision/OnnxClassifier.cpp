#include <orvane/platform/vision/OnnxClassifier.h>

#include <orvane/platform/base/Helpers.h>
#include <orvane/platform/concurrency/ProcessExit.h>
#include <orvane/platform/vision/internal/OnnxDescription.h>
#include <orvane/platform/vision/internal/OnnxNetwork.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <expected>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

namespace orvane {
namespace {

using platform::OnnxDescription;
using platform::OnnxEngine;
using platform::OnnxNetwork;
using platform::RgbImage;

/// The model's input: three planes of floats.
std::vector<float> inputOf(const RgbImage& image, const OnnxDescription& description) {
  const auto pixels = image.pixels.size() / 3;
  std::vector<float> input(image.pixels.size());
  for (std::size_t channel = 0; channel < 3; ++channel) {
    float* const plane = input.data() + channel * pixels;
    const double factor = description.scale / description.deviation.at(channel);
    const double offset = description.mean.at(channel) / description.deviation.at(channel);
    const std::size_t source = description.isBgr ? 2 - channel : channel;
    for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
      plane[pixel] = static_cast<float>(image.pixels[pixel * 3 + source] * factor - offset);
    }
  }
  return input;
}

Error withoutEngine(const std::string& reason) {
  return {kOnnxErrorDomain, static_cast<int>(OnnxProblem::unavailable),
          "ONNX models cannot be used (" + reason + ")"};
}

/// Turns the model's outputs into confidences.
void activate(std::vector<float>& values, OnnxDescription::Output output) {
  if (output == OnnxDescription::Output::softmax) {
    const float largest = std::ranges::max(values);
    double sum = 0;
    for (float& value : values) sum += value = std::exp(value - largest);
    for (float& value : values) value = static_cast<float>(value / sum);
  } else if (output == OnnxDescription::Output::sigmoid) {
    for (float& value : values) value = 1 / (1 + std::exp(-value));
  }
  for (float& value : values) value = std::clamp(value, 0.0F, 1.0F);
}

}  // namespace

/// A network computes one image at a time: each caller takes one that is idle, or makes another.
struct OnnxClassifier::Model {
  OnnxDescription description;
  SharedBytes file;
  const OnnxEngine* engine = nullptr;
  std::mutex mutex;
  std::vector<std::unique_ptr<OnnxNetwork>> idle;

  [[nodiscard]] std::expected<std::unique_ptr<OnnxNetwork>, std::string> take() {
    std::unique_lock lock(mutex);
    if (idle.empty()) {
      lock.unlock();
      return engine->load(file.view());
    }
    auto network = std::move(idle.back());
    idle.pop_back();
    return network;
  }

  /// What the model gives for an image, one value for each label. What the network reports becomes
  /// an error of the kind `problem`.
  [[nodiscard]] Result<std::vector<float>> compute(OnnxProblem problem, const RgbImage& image) {
    const platform::ProcessExit::Passage passage;
    if (!passage) return std::unexpected(platform::ProcessExit::error());
    auto network = take();
    if (!network) return failed(problem, network.error());
    auto values = (*network)->compute(inputOf(image, description), image.width, image.height);
    if (!values) return failed(problem, values.error());
    if (values->size() != description.labels.size()) {
      return failed(OnnxProblem::model, "gives " + std::to_string(values->size()) + " values for " +
                                            std::to_string(description.labels.size()) + " labels");
    }
    const std::lock_guard lock(mutex);
    idle.push_back(std::move(*network));
    if (!std::ranges::all_of(*values, [](float value) { return std::isfinite(value); })) {
      return failed(OnnxProblem::computation, "gives what is no number");
    }
    return std::move(*values);
  }

  [[nodiscard]] std::unexpected<Error> failed(OnnxProblem problem,
                                              const std::string& sentence) const {
    return std::unexpected(platform::onnxError(problem, description.model, sentence));
  }
};

OnnxClassifier::OnnxClassifier(std::unique_ptr<Model> model) : model_(std::move(model)) {}

OnnxClassifier::~OnnxClassifier() = default;

Result<std::shared_ptr<const OnnxClassifier>> OnnxClassifier::open(
    const std::filesystem::path& description) {
  auto read = platform::readOnnxDescription(description);
  if (!read) return std::unexpected(read.error());
  auto file = platform::readNamed(read->model);
  if (!file) return std::unexpected(file.error());
  const auto engine = platform::symbolOfModule(platform::kOnnxModule, platform::kOnnxSymbol);
  if (!engine) return std::unexpected(withoutEngine(engine.error()));
  auto model = std::make_unique<Model>();
  model->engine = static_cast<const OnnxEngine*>(*engine);
  model->description = std::move(*read);
  model->file = std::move(*file);
  // Shows whether it fits the description; the first image does not pay for the preparation.
  RgbImage black{
      .width = model->description.width, .height = model->description.height, .pixels = {}};
  black.pixels.resize(static_cast<std::size_t>(black.width) *
                      static_cast<std::size_t>(black.height) * 3);
  const auto values = model->compute(OnnxProblem::model, black);
  if (!values) return std::unexpected(values.error());
  platform::ProcessExit::watch();  // OpenCV has made what it needs.
  return std::shared_ptr<const OnnxClassifier>(new OnnxClassifier(std::move(model)));
}

Result<std::vector<ClassificationObservation>> OnnxClassifier::classify(
    const std::filesystem::path& image) const {
  const auto& description = model_->description;
  const auto pixels =
      platform::readImage(image, description.width, description.height, description.fit);
  if (!pixels) return std::unexpected(pixels.error());
  auto values = model_->compute(OnnxProblem::computation, *pixels);
  if (!values) return std::unexpected(values.error());
  activate(*values, description.output);
  std::vector<ClassificationObservation> observations;
  observations.reserve(values->size());
  for (std::size_t i = 0; i < values->size(); ++i) {
    observations.push_back({description.labels[i], (*values)[i]});
  }
  std::ranges::stable_sort(observations, std::greater{}, &ClassificationObservation::confidence);
  return observations;
}

}  // namespace orvane
