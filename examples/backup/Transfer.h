#pragma once

#include <orvane/Async.h>
#include <orvane/bookkeeping/UploadRecord.h>
#include <orvane/transport/S3MultipartUploader.h>

#include <filesystem>

namespace backup {

/// Uploads a file as its record says, and keeps the record's `bytesUploaded` up to date meanwhile:
/// the engine's callbacks as a coroutine of the main loop. The arguments must outlive it.
///
/// Of a file that goes up in parts, the store of multipart uploads holds how many parts are there,
/// for people who ask. The engine's uploader keeps the upload's identifier and the parts' ETags to
/// itself, so these stay empty there, and nobody can go on from it.
[[nodiscard]] orvane::Async<void> transfer(orvane::S3MultipartUploader& uploader,
                                           const std::filesystem::path& file,
                                           orvane::UploadRecord& record);

}  // namespace backup
