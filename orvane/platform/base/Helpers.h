#pragma once

#include <expected>
#include <filesystem>
#include <string>

// What the engine starts or loads only when it is needed, so that a host that never needs it does
// not pay for its libraries: the image worker, and modules that hold OpenCV or libsecret.
namespace orvane::platform {

/// The folder that holds the helpers: of this build or, in an installed library, of the package.
[[nodiscard]] std::filesystem::path helperFolder();

/// Names another one for everything that is started or loaded from here on. Any thread.
void setHelperFolder(std::filesystem::path folder);

/// The address of `symbol` in the module of that name, which stays loaded. The error is what the
/// dynamic linker says, and names the file. Any thread; blocks on the disk the first time.
[[nodiscard]] std::expected<const void*, std::string> symbolOfModule(const std::string& module,
                                                                     const char* symbol);

}  // namespace orvane::platform
