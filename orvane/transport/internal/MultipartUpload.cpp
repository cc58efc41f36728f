#include <orvane/transport/internal/MultipartUpload.h>

#include <orvane/platform/base/MappedMemory.h>
#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/transport/Listing.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/S3MultipartUploader.h>

#include <utility>

namespace orvane::transport {
namespace {

constexpr std::int64_t kPartSize = S3MultipartUploader::chunkSize;

Result<std::string> etagOfPart(Result<HttpResponse> answer) {
  answer = checkedAnswer(std::move(answer));
  if (!answer) return std::unexpected(answer.error());
  const auto etag = answer->headers.get("ETag");
  if (!etag) return std::unexpected(S3Error::serverError("Missing ETag"));
  return etagFromHeader(*etag);
}

}  // namespace

MultipartUpload::MultipartUpload(std::shared_ptr<UploaderState> uploader, MultipartUploadJob job)
    : uploader_(std::move(uploader)),
      job_(std::move(job)),
      partCount_(job_.fileSize / kPartSize + (job_.fileSize % kPartSize != 0 ? 1 : 0)) {}

void MultipartUpload::start() {
  auto file = platform::FileReader::open(job_.file);
  if (!file) return abort(S3Error::fileReadError());
  file_ = std::move(*file);
  buffer_ = platform::mappedMemory(kPartSize);
  if (!buffer_) return abort(S3Error::fileReadError());
  uploadNextPart();
}

void MultipartUpload::uploadNextPart() {
  const auto number = static_cast<std::int64_t>(parts_.size()) + 1;
  if (number > partCount_) return complete();
  const auto length = file_->read({buffer_.get(), kPartSize});
  if (!length) return abort(S3Error::fileReadError());
  if (*length == 0) return complete();  // The file has become shorter.
  uploadPart(number, *length);
}

void MultipartUpload::uploadPart(std::int64_t number, std::size_t length) {
  const SharedBytes body(buffer_, ByteView(buffer_.get(), length));
  auto part = uploadPartRequest(uploader_->signer, job_.object, number, job_.uploadId, body);
  if (!part) return abort(S3Error::invalidURL());
  uploader_->session.start(
      std::move(part->request), std::move(part->body), {},
      [self = shared_from_this(), number, length](Result<HttpResponse> answer) {
        self->partAnswered(number, length, std::move(answer));
      });
}

void MultipartUpload::partAnswered(std::int64_t number, std::size_t length,
                                   Result<HttpResponse> answer) {
  auto etag = etagOfPart(std::move(answer));
  if (!etag) return abort(std::move(etag.error()));
  parts_.emplace_back(number, std::move(*etag));
  bytesAccepted_ += static_cast<std::int64_t>(length);
  if (job_.progress) job_.progress(bytesAccepted_, job_.fileSize);
  platform::BackgroundQueue::async([self = shared_from_this()] { self->uploadNextPart(); });
}

void MultipartUpload::complete() {
  file_.reset();
  buffer_.reset();
  auto request = completeRequest(uploader_->signer, job_.object, job_.uploadId, std::move(parts_));
  if (!request) return job_.completion(std::unexpected(S3Error::invalidURL()));
  uploader_->session.start(
      std::move(request->request), std::move(request->body), {},
      [self = shared_from_this()](Result<HttpResponse> answer) {
        const auto checked = checkedAnswer(std::move(answer));
        self->job_.completion(checked ? Result<void>{} : std::unexpected(checked.error()));
      });
}

void MultipartUpload::abort(Error reason) {
  file_.reset();
  buffer_.reset();
  auto request = abortRequest(uploader_->signer, job_.object, job_.uploadId);
  if (!request) return job_.completion(std::unexpected(std::move(reason)));
  uploader_->session.start(
      std::move(*request), {}, {},
      [self = shared_from_this(), reason = std::move(reason)](const Result<HttpResponse>&) {
        self->job_.completion(std::unexpected(reason));
      });
}

}  // namespace orvane::transport
