#pragma once

#include <orvane/platform/http/HttpHeaders.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace orvane::platform {

/// The head of a response, read line by line as the client library hands them out.
///
/// A field's value is text afterwards: one that is not UTF-8 counts as ISO-8859-1, and the lines of
/// a folded value are joined by a space. Interim responses (100 to 199) and trailers leave no
/// fields.
class ResponseHead {
 public:
  /// Takes the next line with its end. False when there is more than any store sends.
  [[nodiscard]] bool read(std::string_view line);

  /// Whether a line has come, be it of an interim response.
  [[nodiscard]] bool hasBegun() const noexcept { return lines_ > 0; }
  /// Whether the empty line has come that ends the head of a response that is not interim.
  [[nodiscard]] bool isComplete() const noexcept { return isComplete_; }

  [[nodiscard]] HttpHeaders takeHeaders() { return std::move(headers_); }

 private:
  void readField(std::string_view line);
  void addField();

  HttpHeaders headers_;
  std::string name_;   ///< Of the field under way; empty when there is none.
  std::string value_;  ///< A further line may still belong to it.
  std::size_t lines_ = 0;
  std::size_t bytes_ = 0;
  bool isInterim_ = false;
  bool isComplete_ = false;
};

}  // namespace orvane::platform
