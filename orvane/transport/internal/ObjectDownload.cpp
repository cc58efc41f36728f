#include <orvane/transport/internal/ObjectDownload.h>

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/BackgroundTask.h>
#include <orvane/platform/files/FileVersion.h>
#include <orvane/transport/ResumableUploader.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/internal/FileSums.h>
#include <orvane/transport/internal/InParallel.h>
#include <orvane/transport/internal/StoredParts.h>
#include <orvane/transport/internal/WholeNumber.h>

#include <boost/asio/this_coro.hpp>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace orvane::transport {
namespace {

namespace fs = std::filesystem;
namespace this_coro = boost::asio::this_coro;

constexpr std::int64_t kRangeSize = std::int64_t{8} << 20;
constexpr int kMaxBeginnings = 4;
constexpr int kVersionIsGone = 412;
constexpr int kNoSuchRange = 416;
constexpr std::int64_t kMaxParts = 10'000;

Error changedObject() {
  return S3Error::serverError("The object changed while it was being downloaded");
}

bool isChange(const Error& error) {
  return hasStatus(error, kVersionIsGone) || error == changedObject();
}

/// The number of parts in an ETag that stores give objects of parts: a sum, "-" and the number.
std::optional<std::int64_t> partCountIn(std::string_view eTag) {
  const auto dash = eTag.find('-');
  if (dash == std::string_view::npos || !isMd5(eTag.substr(0, dash))) return std::nullopt;
  const auto count = wholeNumber(eTag.substr(dash + 1));
  return count && *count >= 1 && *count <= kMaxParts ? count : std::nullopt;
}

std::vector<std::int64_t> equalParts(std::int64_t size, std::int64_t partSize) {
  std::vector<std::int64_t> sizes;
  for (; size > 0; size -= sizes.back()) sizes.push_back(std::min(size, partSize));
  return sizes;
}

}  // namespace

Async<DownloadedObject> ObjectDownload::run() {
  // Cancellation is an error like any other here, and not an exception.
  co_await this_coro::throw_if_cancelled(false);
  object_ = exchange_.config().url(job_.key);
  if (!object_) co_return std::unexpected(S3Error::invalidURL());
  if (PartialFile::isNameOfOne(job_.target.filename().native())) {
    co_return std::unexpected(
        platform::posixError(EINVAL, "give a file the name of an unfinished one"));
  }
  auto looking = lookAtTarget();
  auto decided = co_await std::move(looking);
  if (!decided) co_return std::unexpected(std::move(decided.error()));
  if (*decided) co_return std::move(**decided);
  auto opening = onDisk([this]() -> Result<void> {
    auto opened = PartialFile::open(job_.target);
    if (!opened) return std::unexpected(std::move(opened.error()));
    partial_ = std::move(*opened);
    return {};
  });
  if (auto opened = co_await std::move(opening); !opened) {
    co_return std::unexpected(std::move(opened.error()));
  }
  auto fetching = fetchAndFinish();
  auto object = co_await std::move(fetching);
  if (!object && !mayGoOnLater(object.error())) {
    auto removing = onDisk([this]() -> Result<void> {
      partial_->remove();
      return {};
    });
    static_cast<void>(co_await std::move(removing));
  }
  co_return object;
}

Async<std::optional<DownloadedObject>> ObjectDownload::lookAtTarget() {
  bool isThere = false;
  auto looking = onDisk([this, &isThere]() -> Result<void> {
    std::error_code error;
    const auto type = fs::symlink_status(job_.target, error).type();
    isThere = type != fs::file_type::not_found;
    if (!isThere || type != fs::file_type::none) return {};
    return std::unexpected(platform::posixError(error.value(), "look at the target"));
  });
  if (auto looked = co_await std::move(looking); !looked) {
    co_return std::unexpected(std::move(looked.error()));
  }
  if (!isThere) co_return std::nullopt;
  auto asking = askForVersion();
  if (auto asked = co_await std::move(asking); !asked) {
    co_return std::unexpected(std::move(asked.error()));
  }
  auto comparing = targetIsObject();
  const auto isObject = co_await std::move(comparing);
  if (!isObject) co_return std::unexpected(isObject.error());
  if (*isObject) {
    auto removing = onDisk([this]() -> Result<void> {
      PartialFile::removeBeside(job_.target);  // Nobody will go on with it.
      return {};
    });
    static_cast<void>(co_await std::move(removing));
    co_return outcome(false, true);
  }
  if (job_.existing == ExistingFile::replace) co_return std::nullopt;
  co_return std::unexpected(platform::posixError(EEXIST, "download to the target"));
}

Async<bool> ObjectDownload::targetIsObject() {
  std::optional<platform::FileVersion> file;
  auto looking = onDisk([this, &file]() -> Result<void> {
    std::error_code ignored;
    if (fs::symlink_status(job_.target, ignored).type() != fs::file_type::regular) return {};
    const auto version = platform::versionOf(job_.target);
    if (version) file = *version;
    return {};
  });
  static_cast<void>(co_await std::move(looking));
  if (!file || file->size != version_->size) co_return false;
  if (version_->modified() == file->modified) co_return true;
  auto comparing = compare(job_.target);
  const auto match = co_await std::move(comparing);
  if (!match) co_return std::unexpected(match.error());
  co_return *match == Match::same;
}

Async<DownloadedObject> ObjectDownload::fetchAndFinish() {
  for (int beginnings = 1;; ++beginnings) {
    auto fetching = fetch();
    auto fetched = co_await std::move(fetching);
    if (fetched) {
      auto finishing = finish();
      co_return co_await std::move(finishing);
    }
    if (!isChange(fetched.error())) co_return std::unexpected(std::move(fetched.error()));
    if (beginnings == kMaxBeginnings) co_return std::unexpected(changedObject());
    version_.reset();
    firstRange_.clear();
    auto clearing = onDisk([this] { return partial_->clear(); });
    if (auto cleared = co_await std::move(clearing); !cleared) {
      co_return std::unexpected(std::move(cleared.error()));
    }
  }
}

Async<DownloadedObject> ObjectDownload::finish() {
  auto comparing = compare(partial_->path());
  const auto match = co_await std::move(comparing);
  if (!match) co_return std::unexpected(match.error());
  if (*match == Match::different) {
    co_return std::unexpected(
        S3Error::serverError("The content of the object does not match its ETag"));
  }
  auto finishing = onDisk([this] {
    const bool replaces = job_.existing == ExistingFile::replace;
    return partial_->finish(job_.target, replaces, version_->size, version_->modified());
  });
  if (auto finished = co_await std::move(finishing); !finished) {
    co_return std::unexpected(std::move(finished.error()));
  }
  co_return outcome(*match == Match::same, false);
}

Async<void> ObjectDownload::fetch() {
  auto learning = learnVersion();
  if (auto learned = co_await std::move(learning); !learned) co_return learned;
  if (partial_->size() > 0 && partial_->size() == version_->size) {
    // The last call may have been interrupted when it was about to make the target.
    auto comparing = compare(partial_->path());
    const auto match = co_await std::move(comparing);
    if (!match) co_return std::unexpected(match.error());
    if (*match == Match::same) co_return Result<void>{};
  }
  auto beginning = onDisk([this] {
    const auto version = job_.key + "\n" + version_->eTagField + "\n" +
                         std::to_string(version_->size) + "\n" + std::to_string(kRangeSize);
    return partial_->begin(version, version_->size, kRangeSize);
  });
  if (auto begun = co_await std::move(beginning); !begun) co_return begun;
  missing_ = partial_->missing();
  std::ranges::reverse(missing_);
  received_ = version_->size;
  for (const auto range : missing_) received_ -= bytesOfRange(range).length;
  if (!firstRange_.empty()) {
    missing_.pop_back();
    auto storing = storeRange(0, std::move(firstRange_));
    if (auto stored = co_await std::move(storing); !stored) co_return stored;
  } else {
    report();
  }
  const auto inFlight = std::max<std::size_t>(downloader_->options.rangesInFlight, 1);
  auto fetching =
      inParallel(std::min(inFlight, missing_.size()), [this] { return fetchRangeAfterRange(); });
  co_return co_await std::move(fetching);
}

Async<void> ObjectDownload::learnVersion() {
  if (version_) co_return Result<void>{};
  auto learning = partial_->size() > 0 ? askForVersion() : fetchFirstRange();
  co_return co_await std::move(learning);
}

Async<void> ObjectDownload::askForVersion() {
  auto asking = exchange_.sendRetried(
      [this] { return withoutBody(exchange_.signer().signedRequest("HEAD", *object_)); },
      job_.events.mayRetry);
  const auto response = co_await std::move(asking);
  if (!response) co_return std::unexpected(response.error());
  auto version = versionInHead(*response);
  if (!version) co_return std::unexpected(std::move(version.error()));
  version_ = std::move(*version);
  co_return Result<void>{};
}

Async<void> ObjectDownload::fetchFirstRange() {
  auto asking = exchange_.sendRetried([this] { return rangeRequest(0); }, job_.events.mayRetry);
  auto response = co_await std::move(asking);
  if (!response && hasStatus(response.error(), kNoSuchRange)) {  // An empty object has no range.
    auto heading = askForVersion();
    auto asked = co_await std::move(heading);
    if (asked && version_->size > 0) co_return std::unexpected(changedObject());
    co_return asked;
  }
  if (!response) co_return std::unexpected(std::move(response.error()));
  auto version = versionInRange(*response, bytesOfRange(0));
  if (!version) co_return std::unexpected(std::move(version.error()));
  version_ = std::move(*version);
  firstRange_ = std::move(response->body);
  co_return Result<void>{};
}

Async<void> ObjectDownload::fetchRangeAfterRange() {
  co_await this_coro::throw_if_cancelled(false);
  while (!missing_.empty()) {
    const auto range = missing_.back();
    missing_.pop_back();
    auto asking =
        exchange_.sendRetried([this, range] { return rangeRequest(range); }, job_.events.mayRetry);
    auto response = co_await std::move(asking);
    if (!response && hasStatus(response.error(), kNoSuchRange)) {
      co_return std::unexpected(changedObject());
    }
    if (!response) co_return std::unexpected(std::move(response.error()));
    const auto version = versionInRange(*response, bytesOfRange(range));
    if (!version) co_return std::unexpected(version.error());
    if (*version != *version_) co_return std::unexpected(changedObject());
    auto storing = storeRange(range, std::move(response->body));
    if (auto stored = co_await std::move(storing); !stored) co_return stored;
  }
  co_return Result<void>{};
}

Async<void> ObjectDownload::storeRange(std::int64_t range, std::string content) {
  auto writing =
      onDisk([this, range, &content] { return partial_->write(range, bytesOf(content)); });
  if (auto written = co_await std::move(writing); !written) co_return written;
  received_ += static_cast<std::int64_t>(content.size());
  report();
  co_return Result<void>{};
}

Async<ObjectDownload::Match> ObjectDownload::compare(fs::path file) {
  const auto eTag = version_->eTag();
  const auto partCount = partCountIn(eTag);
  if (!partCount && !isMd5(eTag)) co_return Match::unknown;
  const bool isInParts = partCount.has_value();
  auto sizes = std::vector{version_->size};
  if (isInParts) {
    sizes = equalParts(version_->size, ResumableUploader::partSizeFor(version_->size));
  }
  for (bool sizesAreKnown = !isInParts;; sizesAreKnown = true) {
    if (!isInParts || std::cmp_equal(sizes.size(), *partCount)) {
      auto summing = eTagOfFile(file, sizes, isInParts);
      const auto sum = co_await std::move(summing);
      if (!sum) co_return std::unexpected(sum.error());
      if (*sum == eTag) co_return Match::same;
    }
    if (sizesAreKnown) co_return version_->eTagIsOfContent ? Match::different : Match::unknown;
    auto asking = storedPartSizes(*partCount);
    auto stored = co_await std::move(asking);
    if (!stored) co_return std::unexpected(std::move(stored.error()));
    if (stored->empty()) co_return Match::unknown;
    sizes = std::move(*stored);
  }
}

Async<std::string> ObjectDownload::eTagOfFile(fs::path file, std::vector<std::int64_t> sizes,
                                              bool isInParts) {
  bool more = true;
  FileSums sums(std::move(file), std::move(sizes));
  while (more) {
    auto checking = failIfCancelled();
    if (auto going = co_await std::move(checking); !going) {
      co_return std::unexpected(std::move(going.error()));
    }
    auto reading = onDisk([&sums, &more]() -> Result<void> {
      const auto step = sums.step();
      more = step.value_or(false);
      return step ? Result<void>{} : std::unexpected(step.error());
    });
    if (auto read = co_await std::move(reading); !read) {
      co_return std::unexpected(std::move(read.error()));
    }
  }
  co_return isInParts ? eTagOfParts(sums.sums()).value_or("") : sums.sums().front();
}

Async<std::vector<std::int64_t>> ObjectDownload::storedPartSizes(std::int64_t count) {
  std::vector<std::int64_t> sizes;
  auto left = version_->size;
  while (std::cmp_less(sizes.size(), count)) {
    const auto number = std::to_string(sizes.size() + 1);
    auto asking = exchange_.sendRetried(
        [this, &number]() -> std::optional<RequestWithBody> {
          const auto url = object_->withQuery({{"partNumber", number}});
          if (!url) return std::nullopt;
          return withoutBody(
              exchange_.signer().signedRequest("HEAD", *url, {{"If-Match", version_->eTagField}}));
        },
        job_.events.mayRetry);
    const auto response = co_await std::move(asking);
    if (!response && isForGood(response.error())) co_return std::vector<std::int64_t>{};
    if (!response) co_return std::unexpected(response.error());
    sizes.push_back(wholeNumber(response->headers.get("Content-Length").value_or("")).value_or(0));
    left -= std::min(left, sizes.back());
    if (sizes.back() == 0 || (left == 0) != std::cmp_equal(sizes.size(), count)) {
      co_return std::vector<std::int64_t>{};
    }
  }
  co_return sizes;
}

Async<void> ObjectDownload::onDisk(std::function<Result<void>()> work) {
  auto working = platform::backgroundTask(std::move(work));
  auto done = co_await std::move(working);
  diskFailed_ = diskFailed_ || !done;
  co_return done;
}

std::optional<RequestWithBody> ObjectDownload::rangeRequest(std::int64_t range) const {
  AWSSignatureV4::Headers headers = {{"Range", bytesOfRange(range).headerValue()}};
  if (version_) headers.insert(headers.end(), {"If-Match", version_->eTagField});
  auto request = exchange_.signer().signedRequest("GET", *object_, headers);
  request.maximumAnswerSize = static_cast<std::size_t>(kRangeSize);
  return withoutBody(std::move(request));
}

ByteRange ObjectDownload::bytesOfRange(std::int64_t range) const {
  const auto first = range * kRangeSize;
  const auto left = version_ ? version_->size - first : kRangeSize;
  return {.first = first, .length = std::min(kRangeSize, left)};
}

bool ObjectDownload::mayGoOnLater(const Error& error) const {
  const bool holdsSomething = received_ > 0 || partial_->size() > 0;
  return !diskFailed_ && !isForGood(error) && holdsSomething;
}

DownloadedObject ObjectDownload::outcome(bool isChecked, bool wasThere) const {
  return {.eTag = version_->eTag(),
          .size = version_->size,
          .isChecked = isChecked,
          .wasThere = wasThere};
}

void ObjectDownload::report() const {
  if (job_.events.progress) job_.events.progress(received_, version_->size);
}

}  // namespace orvane::transport
