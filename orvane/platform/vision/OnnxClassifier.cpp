#include <orvane/platform/vision/OnnxClassifier.h>

#include <orvane/platform/concurrency/ProcessExit.h>
#include <orvane/platform/vision/internal/OnnxDescription.h>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

namespace orvane {
namespace {

using platform::OnnxDescription;
using platform::RgbImage;

/// While one lives, OpenCV prints nothing: the library never does.
class Silence {
 public:
  Silence() {
    const std::lock_guard lock(mutex);
    if (count++ > 0) return;
    former = cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  }
  ~Silence() {
    const std::lock_guard lock(mutex);
    if (--count == 0) cv::utils::logging::setLogLevel(former);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  inline static constinit std::mutex mutex;
  inline static int count = 0;
  inline static cv::utils::logging::LogLevel former = cv::utils::logging::LOG_LEVEL_WARNING;
};

/// The model's input: three planes of floats.
cv::Mat inputOf(const RgbImage& image, const OnnxDescription& description) {
  const int shape[] = {1, 3, image.height, image.width};
  cv::Mat input(4, shape, CV_32F);
  const auto pixels = image.pixels.size() / 3;
  for (std::size_t channel = 0; channel < 3; ++channel) {
    auto* plane = input.ptr<float>(0, static_cast<int>(channel));
    const double factor = description.scale / description.deviation.at(channel);
    const double offset = description.mean.at(channel) / description.deviation.at(channel);
    const std::size_t source = description.isBgr ? 2 - channel : channel;
    for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
      plane[pixel] = static_cast<float>(image.pixels[pixel * 3 + source] * factor - offset);
    }
  }
  return input;
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
  std::mutex mutex;
  std::vector<cv::dnn::Net> idle;

  [[nodiscard]] cv::dnn::Net take() {
    std::unique_lock lock(mutex);
    if (idle.empty()) {
      lock.unlock();
      const auto bytes = textOf(file.view());
      return cv::dnn::readNetFromONNX(bytes.data(), bytes.size());
    }
    auto net = idle.back();
    idle.pop_back();
    return net;
  }

  /// What the model gives for an input, one value for each label. Throws what OpenCV does.
  [[nodiscard]] Result<std::vector<float>> compute(const cv::Mat& input) {
    auto net = take();
    net.setInput(input);
    const cv::Mat output = net.forward();
    const bool isOneOfEach = output.depth() == CV_32F && output.isContinuous() &&
                             output.total() == description.labels.size();
    if (!isOneOfEach) {
      return failed(OnnxProblem::model, "gives " + std::to_string(output.total()) + " values for " +
                                            std::to_string(description.labels.size()) + " labels");
    }
    const auto* values = output.ptr<float>();
    std::vector<float> result(values, values + output.total());
    const std::lock_guard lock(mutex);
    idle.push_back(net);
    if (!std::ranges::all_of(result, [](float value) { return std::isfinite(value); })) {
      return failed(OnnxProblem::computation, "gives what is no number");
    }
    return result;
  }

  /// The same; what OpenCV throws becomes an error of that kind.
  [[nodiscard]] Result<std::vector<float>> computeOr(OnnxProblem problem,
                                                     const RgbImage& image) try {
    const platform::ProcessExit::Passage passage;
    if (!passage) return std::unexpected(platform::ProcessExit::error());
    const Silence silence;
    return compute(inputOf(image, description));
  } catch (const std::exception& exception) {
    return failed(problem, exception.what());
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
  cv::setNumThreads(1);
  auto model = std::make_unique<Model>();
  model->description = std::move(*read);
  model->file = std::move(*file);
  // Shows whether it fits the description; the first image does not pay for the preparation.
  RgbImage black{
      .width = model->description.width, .height = model->description.height, .pixels = {}};
  black.pixels.resize(static_cast<std::size_t>(black.width) *
                      static_cast<std::size_t>(black.height) * 3);
  const auto values = model->computeOr(OnnxProblem::model, black);
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
  auto values = model_->computeOr(OnnxProblem::computation, *pixels);
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
