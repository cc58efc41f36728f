#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

namespace orvane {

/// How far an upload in parts has come, and of what file: all that another process needs in order
/// to go on with it. A plain value; keep it wherever it survives, for example in
/// `MultipartUploadStore`.
struct UploadCheckpoint {
  std::string uploadId;       ///< The store's name for the upload.
  std::int64_t fileSize = 0;  ///< Bytes in the file.
  /// When the file was changed last.
  std::chrono::sys_time<std::chrono::nanoseconds> modified;
  /// Number of each part that the store has accepted, from 1, and its ETag without quotes.
  std::map<std::int64_t, std::string> parts;

  friend bool operator==(const UploadCheckpoint&, const UploadCheckpoint&) = default;
};

}  // namespace orvane
