#pragma once

#include <orvane/platform/base/Bytes.h>

#include <expected>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orvane::platform {

/// A network that computes one image at a time.
class OnnxNetwork {
 public:
  OnnxNetwork() = default;
  virtual ~OnnxNetwork() = default;
  OnnxNetwork(const OnnxNetwork&) = delete;
  OnnxNetwork& operator=(const OnnxNetwork&) = delete;

  /// What the network gives for an image of three planes of `width` by `height` samples; or what
  /// is wrong. After that it is not used again.
  [[nodiscard]] virtual std::expected<std::vector<float>, std::string> compute(
      std::span<const float> planes, int width, int height) = 0;
};

/// What the module that holds OpenCV does; see `OnnxClassifier`.
struct OnnxEngine {
  std::expected<std::unique_ptr<OnnxNetwork>, std::string> (*load)(ByteView model);
};

/// The module's name, and that of the `OnnxEngine` in it.
inline constexpr const char* kOnnxModule = "orvane-onnx";
inline constexpr const char* kOnnxSymbol = "orvaneOnnxEngine";

}  // namespace orvane::platform
