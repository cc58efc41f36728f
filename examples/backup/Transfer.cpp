#include "Transfer.h"

#include <orvane/bookkeeping/MultipartUploadStore.h>

#include "Rules.h"
#include "Tasks.h"

#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <map>
#include <string>
#include <utility>

namespace backup {
namespace {

namespace asio = boost::asio;
using orvane::MultipartUploadStore;
using orvane::Result;
using orvane::S3MultipartUploader;
using orvane::UploadRecord;

bool goesUpInParts(const UploadRecord& record) {
  return record.totalBytes >= S3MultipartUploader::chunkSize;
}

void noteParts(const UploadRecord& record) {
  constexpr std::int64_t kPart = S3MultipartUploader::chunkSize;
  if (!goesUpInParts(record)) return;
  const auto partsOf = [](std::int64_t bytes) { return (bytes + kPart - 1) / kPart; };
  std::map<std::string, std::string> sent;
  for (std::int64_t part = 1; part <= partsOf(record.bytesUploaded); ++part) {
    sent.emplace(std::to_string(part), "");
  }
  MultipartUploadStore::shared().save(
      {record.id(), "", record.filename(), std::string(contentTypeOf(record.id())),
       partsOf(record.totalBytes), record.totalBytes, std::move(sent)});
}

}  // namespace

orvane::Async<void> transfer(S3MultipartUploader& uploader, const std::filesystem::path& file,
                             UploadRecord& record) {
  Result<void> outcome;
  asio::steady_timer end(mainLoop(), asio::steady_timer::time_point::max());
  noteParts(record);
  // The engine calls back on threads of its own; this thread is told through the main loop.
  uploader.upload(
      file, record.filename(), contentTypeOf(file),
      [&record](std::int64_t sent, std::int64_t) {
        asio::post(mainLoop(), [&record, sent] {
          record.bytesUploaded = sent;
          noteParts(record);
        });
      },
      [&outcome, &end](Result<void> result) {
        asio::post(mainLoop(), [&outcome, &end, result = std::move(result)]() mutable {
          outcome = std::move(result);
          end.cancel();
        });
      });
  boost::system::error_code cancelled;
  co_await end.async_wait(asio::redirect_error(asio::use_awaitable, cancelled));
  if (goesUpInParts(record)) MultipartUploadStore::shared().remove(record.id());
  co_return outcome;
}

}  // namespace backup
