#pragma once

#include <orvane/platform/HttpHeaders.h>
#include <orvane/platform/Url.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace orvane {

/// An HTTP request without its body, which is handed to the session beside it.
struct HttpRequest {
  std::string method;
  Url url;
  HttpHeaders headers;

  /// How long the transfer may go without progress; it may take longer in all.
  std::chrono::milliseconds timeout = std::chrono::seconds(60);

  /// A longer answer fails with dataLengthExceedsMaximum instead of filling the memory.
  std::size_t maximumAnswerSize = std::size_t{1} << 30;
};

}  // namespace orvane
