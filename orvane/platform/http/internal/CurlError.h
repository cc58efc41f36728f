#pragma once

#include <orvane/Error.h>

#include <curl/curl.h>

namespace orvane::platform {

/// The error for a transfer that ended with `code`, which is a failure. `openFailure` is the errno
/// value with which a socket could not be opened for it, or 0; where that says that descriptors or
/// memory have run out, it is the POSIX error, otherwise a URL-loading one.
[[nodiscard]] Error errorOf(CURL* easy, CURLcode code, int openFailure = 0);

/// Whether a transfer that ended with `code` within a head did so since a line of it was too long.
[[nodiscard]] bool isLineTooLong(CURL* easy, CURLcode code);

}  // namespace orvane::platform
