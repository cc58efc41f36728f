#include "support/OnnxModel.h"

#include <cstdint>
#include <cstring>
#include <string_view>

namespace orvane::testing {
namespace {

// The wire format of protocol buffers: fields with a number, either whole numbers or bytes.

std::string varint(std::uint64_t value) {
  std::string bytes;
  for (; value >= 0x80; value >>= 7U) bytes += static_cast<char>(value | 0x80U);
  return bytes + static_cast<char>(value);
}

std::string field(unsigned number, std::uint64_t value) {
  return varint(number << 3U) + varint(value);
}

std::string field(unsigned number, std::string_view bytes) {
  return varint(number << 3U | 2U) + varint(bytes.size()) + std::string(bytes);
}

constexpr std::uint64_t kFloat = 1;
constexpr std::uint64_t kInteger = 2;

std::string node(std::string_view operation, const std::vector<std::string_view>& inputs,
                 std::string_view output, const std::string& attributes = {}) {
  std::string bytes;
  for (const auto input : inputs) bytes += field(1, input);
  return field(1, bytes + field(2, output) + field(3, output) + field(4, operation) + attributes);
}

std::string attribute(std::string_view name, std::uint64_t value) {
  return field(5, field(1, name) + field(3, value) + field(20, kInteger));
}

std::string tensor(std::string_view name, const std::vector<std::size_t>& sides,
                   const std::vector<float>& values) {
  std::string raw(values.size() * sizeof(float), '\0');
  std::memcpy(raw.data(), values.data(), raw.size());
  std::string bytes;
  for (const auto side : sides) bytes += field(1, side);
  return field(5, bytes + field(2, kFloat) + field(8, name) + field(9, raw));
}

std::string placeholder(unsigned number, std::string_view name,
                        const std::vector<std::size_t>& sides) {
  std::string shape;
  for (const auto side : sides) shape += field(1, field(1, side));
  const auto type = field(1, field(1, kFloat) + field(2, shape));
  return field(number, field(1, name) + field(2, type));
}

}  // namespace

std::string onnxModelOfMeans(const std::vector<std::vector<float>>& weights,
                             const std::vector<float>& biases, int height, int width) {
  std::vector<float> flat;
  for (const auto& row : weights) flat.insert(flat.end(), row.begin(), row.end());
  const auto outputs = weights.size();
  const auto graph =
      node("GlobalAveragePool", {"image"}, "means") +
      node("Flatten", {"means"}, "flat", attribute("axis", 1)) +
      node("Gemm", {"flat", "weights", "biases"}, "result", attribute("transB", 1)) +
      field(2, "means") + tensor("weights", {outputs, weights.at(0).size()}, flat) +
      tensor("biases", {outputs}, biases) +
      placeholder(11, "image",
                  {1, 3, static_cast<std::size_t>(height), static_cast<std::size_t>(width)}) +
      placeholder(12, "result", {1, outputs});
  return field(1, 7) + field(7, graph) + field(8, field(2, 11));
}

}  // namespace orvane::testing
