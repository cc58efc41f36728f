#pragma once

namespace orvane::platform {

/// The folder of the helpers. Each build has two of these: one for what is linked in the build
/// folder, one for what is linked against the installed library.
extern const char* const kHelperPlace;

}  // namespace orvane::platform
