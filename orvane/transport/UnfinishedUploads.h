#pragma once

#include <orvane/Error.h>
#include <orvane/transport/S3Config.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// A multipart upload that was begun and neither completed nor aborted. The store keeps its parts,
/// and may charge for them.
struct UnfinishedUpload {
  std::string key;  ///< Whole, the prefix of the configuration included.
  std::string uploadId;
  std::chrono::sys_seconds begun;
};

/// Every unfinished upload whose key begins with `prefix`, which counts as it is. A host aborts
/// those that nobody goes on with by `S3Uploader::abortMultipartUpload`; another device may be at
/// work with a young one.
///
/// Blocks until the last page is there; any thread may call it. Nothing is retried. Entries without
/// key, identifier or time are left out. Errors: `S3Error::invalidURL`, `S3Error::httpError` for a
/// response of 300 or more, the HTTP client's errors.
[[nodiscard]] Result<std::vector<UnfinishedUpload>> listUnfinishedUploads(const S3Config& config,
                                                                          std::string_view prefix);

}  // namespace orvane
