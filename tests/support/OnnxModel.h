#pragma once

#include <string>
#include <vector>

namespace orvane::testing {

/// The bytes of an ONNX model for images of any size with three planes: the mean of each plane,
/// then one output for each row of `weights` (a factor for each mean) plus its bias.
std::string onnxModelOfMeans(const std::vector<std::vector<float>>& weights,
                             const std::vector<float>& biases, int height, int width);

}  // namespace orvane::testing
