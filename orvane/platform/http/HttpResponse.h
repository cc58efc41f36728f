#pragma once

#include <orvane/platform/http/HttpHeaders.h>

#include <string>

namespace orvane {

/// A complete HTTP response, whatever its status.
struct HttpResponse {
  int status = 0;
  HttpHeaders headers;  ///< Their values are UTF-8: other bytes count as ISO-8859-1.
  std::string body;     ///< The bytes as received; empty when the response has no content.
};

}  // namespace orvane
