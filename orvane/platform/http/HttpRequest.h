#pragma once

#include <orvane/platform/http/HttpHeaders.h>
#include <orvane/platform/http/Url.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace orvane {

/// An HTTP request without its body, which is handed to the session beside it.
struct HttpRequest {
  std::string method;
  Url url;
  HttpHeaders headers;

  /// How long the transfer may go without progress; it may take longer in all. At least 1 ms; more
  /// than 24 days count as 24.
  std::chrono::milliseconds timeout = std::chrono::seconds(60);

  /// More of a response's body is never read. A longer one fails with dataLengthExceedsMaximum if
  /// it is needed whole; otherwise the transfer ends there, and its status still counts.
  std::size_t maximumAnswerSize = std::size_t{64} << 20;

  /// Whether a success (a status below 300) needs its whole body. Of every other response the
  /// response holds the first MiB, cut at a character of UTF-8; the rest is read and dropped.
  bool needsWholeAnswer = true;
};

}  // namespace orvane
