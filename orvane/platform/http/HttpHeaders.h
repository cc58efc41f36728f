#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

/// Header fields in order; names are compared without regard to letter case.
class HttpHeaders {
 public:
  using Field = std::pair<std::string, std::string>;

  /// Makes room for so many fields.
  void reserve(std::size_t count) { fields_.reserve(count); }

  /// Replaces the field of that name, name included, or adds one.
  void set(std::string_view name, std::string_view value);

  /// Joins `value` to the field of that name with ", ", or adds one: what repeated fields mean.
  void append(std::string_view name, std::string_view value);

  /// The value, or nothing when there is no such field. Valid until the headers change.
  [[nodiscard]] std::optional<std::string_view> get(std::string_view name) const noexcept;

  [[nodiscard]] auto begin() const noexcept { return fields_.begin(); }
  [[nodiscard]] auto end() const noexcept { return fields_.end(); }

 private:
  [[nodiscard]] Field* find(std::string_view name) noexcept;

  std::vector<Field> fields_;
};

}  // namespace orvane
