#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace orvane::platform {

/// Whether `token` is exactly one number of the JSON grammar, whatever its size.
[[nodiscard]] bool isJsonNumber(std::string_view token);

/// The value of a JSON number that is whole and has 64 bits, however it is written: "3", "3.0" and
/// "30e-1" are the same. Nothing for anything else.
[[nodiscard]] std::optional<std::int64_t> wholeNumber(std::string_view token);

/// The shortest text that reads back as the same finite number; whole numbers of 64 bits without
/// fraction and exponent.
class NumberText {
 public:
  explicit NumberText(double number);
  [[nodiscard]] std::string_view view() const { return {characters_.data(), length_}; }

 private:
  std::array<char, 32> characters_{};
  std::size_t length_;
};

}  // namespace orvane::platform
