#include <orvane/platform/vision/internal/OnnxNetwork.h>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>

#include <exception>
#include <mutex>
#include <string_view>

namespace orvane::platform {
namespace {

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

cv::dnn::Net netIn(std::string_view model) {
  return cv::dnn::readNetFromONNX(model.data(), model.size());
}

class OpenCvNetwork final : public OnnxNetwork {
 public:
  explicit OpenCvNetwork(ByteView model) : net_(netIn(textOf(model))) {}

  std::expected<std::vector<float>, std::string> compute(std::span<const float> planes, int width,
                                                         int height) override try {
    const Silence silence;
    const int shape[] = {1, 3, height, width};
    net_.setInput(cv::Mat(4, shape, CV_32F, const_cast<float*>(planes.data())));  // NOLINT: read
    const cv::Mat output = net_.forward();
    if (output.depth() != CV_32F || !output.isContinuous()) {
      return std::unexpected("gives other values than floats");
    }
    const auto* const values = output.ptr<float>();
    return std::vector<float>(values, values + output.total());
  } catch (const std::exception& exception) {
    return std::unexpected(exception.what());
  }

 private:
  cv::dnn::Net net_;
};

std::expected<std::unique_ptr<OnnxNetwork>, std::string> load(ByteView model) try {
  const Silence silence;
  cv::setNumThreads(1);
  return std::make_unique<OpenCvNetwork>(model);
} catch (const std::exception& exception) {
  return std::unexpected(exception.what());
}

}  // namespace
}  // namespace orvane::platform

extern "C" {
[[gnu::visibility("default")]] extern const orvane::platform::OnnxEngine orvaneOnnxEngine;
const orvane::platform::OnnxEngine orvaneOnnxEngine{.load = orvane::platform::load};
}
