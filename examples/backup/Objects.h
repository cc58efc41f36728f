#pragma once

#include <orvane/Error.h>
#include <orvane/transport/S3Config.h>

#include <map>
#include <string>

namespace backup {

/// The ETag of every object under the configured prefix, by its key without the prefix. Keys with a
/// line break are not in it. Blocks; fails with the listing's error.
[[nodiscard]] orvane::Result<std::map<std::string, std::string>> listObjects(
    const orvane::S3Config& config);

/// Puts the ETags that the store lists into the records that have none yet: an upload does not
/// always tell its own, and a run may be killed before it has saved it.
void recordETags(const orvane::S3Config& config);

}  // namespace backup
