#pragma once

#include <orvane/Error.h>

#include <curl/curl.h>

namespace orvane::platform {

/// The URL-loading error for a transfer that ended with `code`, which is a failure. `openFailure`
/// is the errno value with which a socket could not be opened for it, or 0.
[[nodiscard]] Error errorOf(CURL* easy, CURLcode code, int openFailure = 0);

/// Whether a transfer that ended with `code` within a head did so since a line of it was too long.
[[nodiscard]] bool isLineTooLong(CURL* easy, CURLcode code);

}  // namespace orvane::platform
