#include <orvane/transport/internal/ResumableUpload.h>

#include <orvane/platform/base/Digest.h>
#include <orvane/platform/base/MappedMemory.h>
#include <orvane/platform/base/Md5.h>
#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/BackgroundTask.h>
#include <orvane/transport/Listing.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/S3MultipartUploader.h>
#include <orvane/transport/XMLTagParser.h>
#include <orvane/transport/internal/InParallel.h>
#include <orvane/transport/internal/ModificationTime.h>
#include <orvane/transport/internal/WholeNumber.h>

#include <boost/asio/this_coro.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace orvane::transport {
namespace {

namespace this_coro = boost::asio::this_coro;

constexpr int kNotFound = 404;

std::unexpected<Error> changedFile() {
  const Error error = S3Error::serverError("The file changed while it was being uploaded");
  return std::unexpected(error);
}

bool isNotFound(const Error& error) { return hasStatus(error, kNotFound); }

std::unexpected<Error> outOfMemory() {
  return std::unexpected(platform::posixError(ENOMEM, "hold a part"));
}

/// A response of 200 may still be an error, since it begins before the store is done.
Result<HttpResponse> completionOf(HttpResponse response) {
  if (!response.body.contains("<Error>") && !response.body.contains("<Error ")) return response;
  const auto code = XMLTagParser::extractTag("Code", bytesOf(response.body)).value_or("");
  constexpr std::array<std::string_view, 3> kPassing = {"InternalError", "SlowDown",
                                                        "ServiceUnavailable"};
  constexpr int kServiceUnavailable = 503;
  if (std::ranges::count(kPassing, code) > 0)
    return std::unexpected(S3Error::httpError(kServiceUnavailable));
  return std::unexpected(S3Error::serverError("The upload cannot be completed: " + code));
}

}  // namespace

Async<std::string> ResumableUpload::run() {
  // Cancellation is an error like any other here, and not an exception.
  co_await this_coro::throw_if_cancelled(false);
  object_ = exchange_.config().url(job_.key);
  if (!object_) co_return std::unexpected(S3Error::invalidURL());
  if (job_.from) reached_ = std::move(*job_.from);
  auto opening = platform::backgroundTask([this] { return open(); });
  auto opened = co_await std::move(opening);
  if (opened && version_.size >= S3MultipartUploader::chunkSize) {
    auto uploading = uploadInParts();
    co_return co_await std::move(uploading);
  }
  auto leaving = abortReached();  // An upload in parts has no use for what is there now.
  co_await std::move(leaving);
  if (!opened) co_return std::unexpected(std::move(opened.error()));
  auto uploading = uploadSmall();
  co_return co_await std::move(uploading);
}

Result<void> ResumableUpload::open() {
  auto file = platform::FileReader::open(job_.file);
  if (!file) return std::unexpected(S3Error::fileReadError());
  const auto version = platform::versionOf(file->descriptor());
  if (!version) return std::unexpected(S3Error::fileReadError());
  file_ = std::move(*file);
  version_ = *version;
  return {};
}

Result<void> ResumableUpload::checkUnchanged() const {
  const auto opened = platform::versionOf(file_->descriptor());
  const auto named = platform::versionOf(job_.file);
  if (opened != version_ || named != version_) return changedFile();
  return {};
}

Async<std::string> ResumableUpload::uploadSmall() {
  auto reading = platform::backgroundTask([this]() -> Result<SharedBytes> {
    auto content = platform::readWholeFile(job_.file);
    if (!content) return std::unexpected(S3Error::fileReadError());
    if (auto unchanged = checkUnchanged(); !unchanged) return std::unexpected(unchanged.error());
    return content;
  });
  auto content = co_await std::move(reading);
  if (!content) co_return std::unexpected(std::move(content.error()));
  auto putting = exchange_.retried<std::string>(
      [this, &content](bool again) { return putOnce(*content, again); }, job_.events.mayRetry);
  auto eTag = co_await std::move(putting);
  if (eTag && job_.events.progress) job_.events.progress(version_.size, version_.size);
  co_return eTag;
}

Async<std::string> ResumableUpload::putOnce(SharedBytes content, bool again) {
  if (again) {  // The response may have been all that was lost.
    auto asking = head();
    const auto stored = co_await std::move(asking);
    if (stored && fits(*stored) &&
        stored->eTag == platform::hexString(platform::md5(content.view()))) {
      co_return stored->eTag;
    }
  }
  auto sending = exchange_.send([this, &content] {
    return std::optional(
        putObjectRequest(exchange_.signer(), *object_, job_.contentType, content, metadata()));
  });
  const auto response = co_await std::move(sending);
  if (!response) co_return std::unexpected(response.error());
  co_return etagFromHeader(response->headers.get("ETag").value_or(""));
}

Async<std::string> ResumableUpload::uploadInParts() {
  for (bool anew = false;; anew = true) {
    auto trying = tryInParts();
    auto eTag = co_await std::move(trying);
    if (eTag || !isForGood(eTag.error())) co_return eTag;
    const bool forgotten = !reached_.uploadId.empty() && isNotFound(eTag.error());
    auto aborting = abortReached();
    co_await std::move(aborting);
    if (anew || !forgotten) co_return eTag;
  }
}

Async<std::string> ResumableUpload::tryInParts() {
  auto beginning = begin();
  auto complete = co_await std::move(beginning);
  if (!complete) co_return std::unexpected(std::move(complete.error()));
  if (*complete) {
    if (job_.events.progress) job_.events.progress(version_.size, version_.size);
    co_return std::move(**complete);
  }
  report();
  auto sending = sendMissingParts();
  if (auto sent = co_await std::move(sending); !sent) {
    co_return std::unexpected(std::move(sent.error()));
  }
  auto checking = platform::backgroundTask([this] { return checkUnchanged(); });
  if (auto unchanged = co_await std::move(checking); !unchanged) {
    co_return std::unexpected(std::move(unchanged.error()));
  }
  auto completing = exchange_.retried<std::string>(
      [this](bool /*again*/) { return completeOnce(); }, job_.events.mayRetry);
  co_return co_await std::move(completing);
}

Async<std::optional<std::string>> ResumableUpload::begin() {
  if (!reached_.uploadId.empty()) {
    auto resuming = resume();
    auto resumed = co_await std::move(resuming);
    if (!resumed) co_return std::unexpected(std::move(resumed.error()));
    if (resumed->goesOn) co_return std::move(resumed->eTag);
  }
  auto initiating = sent([this] {
    return withoutBody(initiateRequest(exchange_.signer(), *object_, job_.contentType, metadata()));
  });
  auto uploadId = uploadIdIn(co_await std::move(initiating));
  if (!uploadId) co_return std::unexpected(std::move(uploadId.error()));
  reached_ = {.uploadId = std::move(*uploadId),
              .fileSize = version_.size,
              .modified = version_.modified,
              .parts = {}};
  nextPart_ = 1;
  co_return std::nullopt;
}

Async<ResumableUpload::Resumed> ResumableUpload::resume() {
  if (reached_.fileSize == version_.size && reached_.modified == version_.modified) {
    auto agreeing = dropPartsNotStored();
    const auto agreed = co_await std::move(agreeing);
    if (agreed && *agreed) co_return Resumed{.goesOn = true, .eTag = {}};
    if (!agreed && isNotFound(agreed.error())) {
      reached_.uploadId.clear();
      auto asking = exchange_.retried<std::optional<std::string>>(
          [this](bool /*again*/) { return completedObject(true); }, job_.events.mayRetry);
      auto eTag = co_await std::move(asking);
      if (!eTag) co_return std::unexpected(std::move(eTag.error()));
      co_return Resumed{.goesOn = eTag->has_value(), .eTag = std::move(*eTag)};
    }
    if (!agreed) co_return std::unexpected(agreed.error());
  }
  auto aborting = abortReached();
  co_await std::move(aborting);
  co_return Resumed{};
}

Async<bool> ResumableUpload::dropPartsNotStored() {
  std::map<std::int64_t, std::string> agreed;
  std::optional<std::int64_t> after = 0;
  while (after) {
    auto listing = sent([this, after] {
      return withoutBody(listPartsRequest(exchange_.signer(), *object_, reached_.uploadId, *after));
    });
    const auto response = co_await std::move(listing);
    if (!response) co_return std::unexpected(response.error());
    auto page = storedPartsIn(response->body);
    for (auto& part : page.parts) {
      const auto known = reached_.parts.find(part.number);
      if (known == reached_.parts.end() || known->second != part.eTag) continue;
      if (part.size > 0 && part.size == lengthOf(part.number)) agreed.insert(*known);
    }
    const bool advances = page.next && *page.next > *after && *page.next < partCount();
    after = advances ? page.next : std::nullopt;
  }
  reached_.parts = std::move(agreed);
  auto comparing = fileHoldsReachedParts();
  co_return co_await std::move(comparing);
}

Async<bool> ResumableUpload::fileHoldsReachedParts() {
  const auto buffer = platform::mappedMemory(partSize());
  if (!buffer) co_return outOfMemory();
  for (const auto& [number, eTag] : reached_.parts) {
    if (!isMd5(eTag)) continue;
    auto checking = failIfCancelled();
    if (auto going = co_await std::move(checking); !going) {
      co_return std::unexpected(std::move(going.error()));
    }
    auto reading =
        platform::backgroundTask([this, &buffer, number = number, &eTag = eTag]() -> Result<bool> {
          const auto part = readPart(number, buffer);
          if (!part) return std::unexpected(part.error());
          return platform::hexString(platform::md5(part->view())) == eTag;
        });
    auto same = co_await std::move(reading);
    if (!same || !*same) co_return same;
  }
  co_return true;
}

Async<void> ResumableUpload::sendMissingParts() {
  const auto missing = static_cast<std::size_t>(partCount()) - reached_.parts.size();
  const auto inFlight = std::max<std::size_t>(uploader_->options.partsInFlight, 1);
  return inParallel(std::min(inFlight, missing), [this] { return sendPartAfterPart(); });
}

Async<void> ResumableUpload::sendPartAfterPart() {
  co_await this_coro::throw_if_cancelled(false);
  const auto buffer = platform::mappedMemory(partSize());
  if (!buffer) co_return outOfMemory();
  while (const auto number = takeMissingPart()) {
    auto sending = sendPart(*number, buffer);
    auto sent = co_await std::move(sending);
    if (!sent) co_return sent;
  }
  co_return Result<void>{};
}

std::optional<std::int64_t> ResumableUpload::takeMissingPart() {
  while (reached_.parts.contains(nextPart_)) ++nextPart_;
  if (nextPart_ > partCount()) return std::nullopt;
  return nextPart_++;
}

Async<void> ResumableUpload::sendPart(std::int64_t number, std::shared_ptr<std::byte[]> buffer) {
  auto reading =
      platform::backgroundTask([this, number, &buffer] { return readPart(number, buffer); });
  const auto part = co_await std::move(reading);
  if (!part) co_return std::unexpected(part.error());
  auto sending = sent([this, number, &part] {
    return uploadPartRequest(exchange_.signer(), *object_, number, reached_.uploadId, *part);
  });
  const auto response = co_await std::move(sending);
  if (!response) co_return std::unexpected(response.error());
  const auto eTag = response->headers.get("ETag");
  if (!eTag) co_return std::unexpected(S3Error::serverError("Missing ETag"));
  reached_.parts.insert_or_assign(number, etagFromHeader(*eTag));
  report();
  co_return Result<void>{};
}

Async<std::string> ResumableUpload::completeOnce() {
  auto sending = exchange_.send([this] {
    MultipartParts parts(reached_.parts.begin(), reached_.parts.end());
    return completeRequest(exchange_.signer(), *object_, reached_.uploadId, std::move(parts));
  });
  auto response = co_await std::move(sending);
  if (response) response = completionOf(std::move(*response));
  if (response) {
    auto named = XMLTagParser::extractTag("ETag", bytesOf(response->body)).value_or("");
    if (!named.empty()) co_return etagFromXml(named);
    auto asking = completedObject(true);  // Some stores name it only later.
    auto stored = co_await std::move(asking);
    if (!stored) co_return std::unexpected(std::move(stored.error()));
    if (!*stored) co_return std::unexpected(S3Error::serverError("Missing ETag"));
    co_return std::move(**stored);
  }
  // The response may have been all that was lost, of this request or of the one before.
  auto asking = completedObject(isNotFound(response.error()));
  auto eTag = co_await std::move(asking);
  if (eTag && *eTag) co_return std::move(**eTag);
  co_return std::unexpected(std::move(response.error()));
}

Async<std::optional<std::string>> ResumableUpload::completedObject(bool uploadIsGone) {
  if (std::cmp_not_equal(reached_.parts.size(), partCount())) co_return std::nullopt;
  auto asking = head();
  auto stored = co_await std::move(asking);
  if (!stored && isNotFound(stored.error())) co_return std::nullopt;
  if (!stored) co_return std::unexpected(std::move(stored.error()));
  std::vector<std::string> eTags;
  eTags.reserve(reached_.parts.size());
  for (const auto& [number, eTag] : reached_.parts) eTags.push_back(eTag);
  const auto expected = eTagOfParts(eTags);
  const bool same =
      expected ? stored->eTag == *expected
               : uploadIsGone && stored->eTag.ends_with("-" + std::to_string(eTags.size()));
  if (!same || !fits(*stored)) co_return std::nullopt;
  co_return std::move(stored->eTag);
}

Async<HttpResponse> ResumableUpload::sent(StoreExchange::Sign sign) {
  return exchange_.sendRetried(std::move(sign), job_.events.mayRetry);
}

Async<ResumableUpload::StoredObject> ResumableUpload::head() {
  auto asking = exchange_.send(
      [this] { return withoutBody(exchange_.signer().signedRequest("HEAD", *object_)); });
  const auto response = co_await std::move(asking);
  if (!response) co_return std::unexpected(response.error());
  StoredObject object{.size = 0,
                      .eTag = etagFromHeader(response->headers.get("ETag").value_or(""))};
  object.modified = modificationTimeIn(response->headers);
  object.size = wholeNumber(response->headers.get("Content-Length").value_or("")).value_or(-1);
  co_return object;
}

bool ResumableUpload::fits(const StoredObject& object) const {
  return object.size == version_.size &&
         object.modified.value_or(version_.modified) == version_.modified;
}

boost::asio::awaitable<void> ResumableUpload::abortReached() {
  const auto uploadId = std::exchange(reached_.uploadId, {});
  if (uploadId.empty()) co_return;
  auto aborting = sent([this, &uploadId] {
    return withoutBody(abortRequest(exchange_.signer(), *object_, uploadId));
  });
  static_cast<void>(co_await std::move(aborting));
}

Result<SharedBytes> ResumableUpload::readPart(std::int64_t number,
                                              const std::shared_ptr<std::byte[]>& buffer) {
  const auto offset = static_cast<std::uint64_t>((number - 1)) * partSize();
  const auto length = static_cast<std::size_t>(lengthOf(number));
  const auto count = file_->readAt(offset, {buffer.get(), length});
  if (!count) return std::unexpected(S3Error::fileReadError());
  if (*count != length) return changedFile();
  return SharedBytes(buffer, ByteView(buffer.get(), length));
}

AWSSignatureV4::Headers ResumableUpload::metadata() const {
  return {{std::string(kModificationTimeField), modificationTimeText(version_.modified)}};
}

std::size_t ResumableUpload::partSize() const {
  return static_cast<std::size_t>(ResumableUploader::partSizeFor(version_.size));
}

std::int64_t ResumableUpload::partCount() const {
  const auto size = static_cast<std::int64_t>(partSize());
  return (version_.size + size - 1) / size;
}

std::int64_t ResumableUpload::lengthOf(std::int64_t partNumber) const {
  const auto size = static_cast<std::int64_t>(partSize());
  if (partNumber < 1 || partNumber > partCount()) return 0;
  return std::min(size, version_.size - (partNumber - 1) * size);
}

void ResumableUpload::report() const {
  if (job_.events.checkpoint) job_.events.checkpoint(reached_);
  if (!job_.events.progress) return;
  std::int64_t sent = 0;
  for (const auto& [number, eTag] : reached_.parts) sent += lengthOf(number);
  job_.events.progress(sent, version_.size);
}

}  // namespace orvane::transport
