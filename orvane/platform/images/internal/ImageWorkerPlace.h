#pragma once

namespace orvane::platform {

/// Where the worker program lies. Each build has two of these: one for what is linked in the build
/// folder, one for what is linked against the installed library.
extern const char* const kImageWorkerPlace;

}  // namespace orvane::platform
