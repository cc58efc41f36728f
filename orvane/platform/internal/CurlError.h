#pragma once

#include <curl/curl.h>
#include <orvane/Error.h>

namespace orvane::platform {

/// The URL-loading error for a transfer that ended with `code`, which is a failure.
[[nodiscard]] Error errorOf(CURL* easy, CURLcode code);

}  // namespace orvane::platform
