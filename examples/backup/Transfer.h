#pragma once

#include <orvane/Async.h>
#include <orvane/bookkeeping/MultipartState.h>
#include <orvane/bookkeeping/UploadRecord.h>
#include <orvane/transport/ResumableUploader.h>

#include <filesystem>
#include <functional>

namespace backup {

/// Uploads a file as its record says, from where an earlier run left it. How far it has come is
/// kept in the store of multipart uploads until it has failed for good; after a success the caller
/// removes it, once the record says so. The arguments must outlive it.
[[nodiscard]] orvane::Async<std::string> transfer(orvane::ResumableUploader& uploader,
                                                  const std::filesystem::path& file,
                                                  const orvane::UploadRecord& record,
                                                  orvane::ResumableUploader::Events events);

/// Aborts an unfinished upload that nobody will go on with, and forgets it.
void giveUp(const orvane::MultipartState& state, const orvane::S3Config& config);

}  // namespace backup
