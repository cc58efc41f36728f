#include "Transfer.h"

#include <orvane/bookkeeping/MultipartUploadStore.h>
#include <orvane/platform/http/UrlError.h>
#include <orvane/transport/RetryPolicy.h>
#include <orvane/transport/S3Uploader.h>

#include "Folder.h"
#include "Rules.h"

#include <chrono>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace backup {
namespace {

using orvane::MultipartState;
using orvane::MultipartUploadStore;
using orvane::ResumableUploader;
using orvane::UploadCheckpoint;
using orvane::UploadRecord;

/// Nothing where the file has changed since its record was made, which is as old as the state.
std::optional<UploadCheckpoint> checkpointOf(const UploadRecord& record,
                                             const std::filesystem::path& file) {
  const auto state = MultipartUploadStore::shared().state(record.id());
  std::error_code unreadable;
  const auto modified = std::filesystem::last_write_time(file, unreadable);
  if (!state || unreadable || modificationDate(file) != record.creationDate) return std::nullopt;
  UploadCheckpoint checkpoint{.uploadId = state->uploadId(),
                              .fileSize = state->fileSize(),
                              .modified = std::chrono::file_clock::to_sys(modified),
                              .parts = {}};
  for (const auto& [number, eTag] : state->completedParts) {
    checkpoint.parts.emplace(std::strtoll(number.c_str(), nullptr, 10), eTag);
  }
  return checkpoint;
}

void keep(const UploadCheckpoint& reached, const UploadRecord& record, std::string contentType) {
  const auto partSize = ResumableUploader::partSizeFor(reached.fileSize);
  std::map<std::string, std::string> parts;
  for (const auto& [number, eTag] : reached.parts) parts.emplace(std::to_string(number), eTag);
  MultipartUploadStore::shared().save(
      {record.id(), reached.uploadId, record.filename(), std::move(contentType),
       (reached.fileSize + partSize - 1) / partSize, reached.fileSize, std::move(parts)});
}

bool mayGoOnLater(const orvane::Error& error) {
  return orvane::RetryPolicy::isRetryable(error) || isCancelled(error);
}

}  // namespace

orvane::Async<std::string> transfer(ResumableUploader& uploader, const std::filesystem::path& file,
                                    const UploadRecord& record, ResumableUploader::Events events) {
  const std::string contentType(contentTypeOf(file));
  events.checkpoint = [&](const UploadCheckpoint& reached) { keep(reached, record, contentType); };
  auto uploading = uploader.upload(file, record.filename(), contentType, checkpointOf(record, file),
                                   std::move(events));
  auto eTag = co_await std::move(uploading);
  if (!eTag && !mayGoOnLater(eTag.error())) MultipartUploadStore::shared().remove(record.id());
  co_return eTag;
}

void giveUp(const MultipartState& state, const orvane::S3Config& config) {
  orvane::S3Uploader::abortMultipartUpload(state.key(), state.uploadId(), config);
  MultipartUploadStore::shared().remove(state.assetId());
}

}  // namespace backup
