#pragma once

#include <orvane/Error.h>

#include <filesystem>
#include <string_view>

namespace orvane::platform {

/// Keeps a file that is of no use, whatever it is, before another takes its place: renames it to
/// the first free name of "<name><suffix>", "<name><suffix>-2" and so on, which is returned. Fails
/// with a POSIX error, ENOENT where there is no file; it then keeps its name.
[[nodiscard]] Result<std::filesystem::path> preserveFile(const std::filesystem::path& file,
                                                         std::string_view suffix);

}  // namespace orvane::platform
