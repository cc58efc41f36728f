#pragma once

#include <curl/curl.h>
#include <orvane/Error.h>

namespace orvane::platform {

/// The URL-loading error for a failed transfer; `osError` is the errno value of its last system
/// call, or 0.
[[nodiscard]] Error errorOf(CURLcode code, long osError);

}  // namespace orvane::platform
