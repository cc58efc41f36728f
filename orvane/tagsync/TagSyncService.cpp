#include <orvane/tagsync/TagSyncService.h>

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/base/PercentEncoding.h>
#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/host/SystemLog.h>
#include <orvane/platform/http/HttpSession.h>
#include <orvane/platform/http/UrlError.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncError.h>
#include <orvane/tagsync/internal/TagExchange.h>
#include <orvane/tagsync/internal/TagListing.h>
#include <orvane/transport/BucketRequests.h>
#include <orvane/transport/S3Uploader.h>

#include <boost/asio/cancellation_state.hpp>
#include <boost/asio/this_coro.hpp>

#include <chrono>
#include <string_view>
#include <utility>

namespace orvane {
namespace {

namespace this_coro = boost::asio::this_coro;
using platform::HttpSession;
using tagsync::RemoteTagFile;

constexpr std::size_t kLargestListing = std::size_t{64} << 20;
/// An object is read whole; this is room for some millions of tags.
constexpr std::size_t kLargestTagObject = std::size_t{256} << 20;

void log(std::string_view text) { SystemLog::write(std::string("[TagSync] ").append(text)); }

std::string decimal(std::int64_t number) { return std::to_string(number); }

std::int64_t nowInMilliseconds() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<milliseconds>(now).count();
}

HttpRequest signedGet(const S3Config& config, const Url& url,
                      const AWSSignatureV4::Headers& headers, std::size_t maximumAnswerSize) {
  auto request = transport::RequestSigner(config).signedRequest("GET", url, headers);
  request.maximumAnswerSize = maximumAnswerSize;
  return request;
}

/// The body of a success; for another status the error that begins with `failure`.
Result<std::string> bodyOf(Result<HttpResponse> answer, std::string_view failure) {
  if (!answer) return std::unexpected(std::move(answer.error()));
  if (answer->status < 200 || answer->status > 299) {
    return std::unexpected(
        TagSyncError::downloadFailed(std::string(failure).append(decimal(answer->status))));
  }
  return std::move(answer->body);
}

bool isCancelled(const boost::asio::cancellation_state& state) {
  return state.cancelled() != boost::asio::cancellation_type::none;
}

std::unexpected<Error> cancelled() {
  return std::unexpected(platform::urlError(platform::UrlErrorCode::cancelled));
}

bool isUnchanged(const RemoteTagFile& file, TagDatabase& database) {
  const auto stored = database.getRemoteETag(file.uuid);
  return stored && *stored && !(*stored)->empty() && **stored == file.eTag;
}

/// Applies another device's object and remembers its ETag, unless a lock has cost tags: the next
/// merge then applies the object again. Returns how many tags were applied.
std::int64_t merge(std::string body, const RemoteTagFile& file, TagDatabase& database,
                   const tagsync::AssetsByObjectName& assets) {
  if (body.empty()) return 0;
  tagsync::TagObjectReader object(std::move(body));
  if (!object.isUtf8()) return 0;
  const auto [applied, triedAll] = tagsync::mergeTags(object, database, file.uuid, assets);
  if (triedAll) static_cast<void>(database.upsertRemoteETag(file.uuid, file.eTag));
  log("Remote device " + file.uuid + ": applied " + decimal(applied) + " tags");
  return applied;
}

}  // namespace

TagSyncService::TagSyncService()
    : tagDb_(TagDatabase::shared()), deviceUUID_(DeviceUUID::shared().uuid()) {}

TagSyncService& TagSyncService::shared() {
  // Never destroyed: operations may still be under way while the process exits.
  static auto& instance = *new TagSyncService;
  return instance;
}

std::string TagSyncService::keyOf(std::string_view uuid) const {
  return std::string(tagsPrefix_).append(uuid).append(tagsync::kTagFileName);
}

Async<TagUpload> TagSyncService::uploadTagsToS3(S3Config config) {
  log("Starting upload for device " + deviceUUID_);
  log("S3Config: bucket=" + config.bucket + ", endpoint=" + config.endpoint +
      ", region=" + config.region);
  auto tags = tagDb_.exportAllTagsForDevice(deviceUUID_);
  if (!tags) co_return std::unexpected(std::move(tags.error()));
  if (tags->empty()) {
    log("No tags to upload");
    co_return TagUpload{};
  }
  const auto assets = static_cast<std::int64_t>(tags->size());
  auto body = tagsync::tagObjectOf(*tags, nowInMilliseconds());
  tags->clear();  // Sending may take long.
  if (body.empty()) co_return TagUpload{};

  const auto size = static_cast<std::int64_t>(body.size());
  const auto key = keyOf(deviceUUID_);
  log("Uploading " + decimal(size) + " bytes to " + config.endpoint + "/" + config.bucket + "/" +
      config.prefix + key);
  auto uploading =
      S3Uploader::uploadData(std::move(body), key, "application/x-jsonlines", std::move(config));
  auto eTag = co_await std::move(uploading);
  if (!eTag) co_return std::unexpected(std::move(eTag.error()));
  log("Upload complete: " + decimal(assets) + " tags, " + decimal(size) + " bytes, ETag: " + *eTag);
  co_return TagUpload{.byteOffset = size, .eTag = std::move(*eTag), .tagCount = assets};
}

Async<std::int64_t> TagSyncService::downloadTagsFromS3(S3Config config) {
  log("Starting download for device " + deviceUUID_);
  const auto lastSeen = tagDb_.getLastSeenTimestamp(deviceUUID_);
  if (!lastSeen) co_return std::unexpected(lastSeen.error());
  log("Downloading full file (last_seen_ts=" + decimal(*lastSeen) + ")");
  auto downloading = downloadFromS3(keyOf(deviceUUID_), 0, std::nullopt, std::move(config));
  auto body = co_await std::move(downloading);
  if (!body) co_return std::unexpected(std::move(body.error()));
  if (body->empty()) co_return 0;

  tagsync::TagObjectReader object(std::move(*body));
  if (!object.isUtf8()) {
    co_return std::unexpected(TagSyncError::parseError("Invalid UTF-8 in JSONL"));
  }
  const auto restored = tagsync::restoreTags(object, tagDb_, deviceUUID_, *lastSeen);
  auto stored = tagDb_.updateLastSeenTimestamp(deviceUUID_, restored.newest);
  if (!stored) co_return std::unexpected(std::move(stored.error()));
  log("Download complete: " + decimal(restored.applied) +
      " tags applied, last_seen_ts=" + decimal(restored.newest));
  co_return restored.applied;
}

Async<std::int64_t> TagSyncService::downloadAllRemoteTags(S3Config config) {
  log("Starting cross-device tag download");
  const auto assets = tagsync::assetsByObjectName();
  auto listing = listTagFiles(config);
  auto files = co_await std::move(listing);
  if (!files) co_return std::unexpected(std::move(files.error()));
  std::erase_if(*files, [this](const RemoteTagFile& file) { return file.uuid == deviceUUID_; });
  log("Found " + decimal(static_cast<std::int64_t>(files->size())) +
      " remote tag files (excluding own device)");

  std::int64_t total = 0;
  for (const auto& file : *files) {
    // A cancelled operation goes no further; without this, waiting once more would throw.
    if (isCancelled(co_await this_coro::cancellation_state)) co_return cancelled();
    if (isUnchanged(file, tagDb_)) {
      log("Skipping " + file.uuid + ": ETag unchanged");
      continue;
    }
    auto downloading = downloadFromS3(keyOf(file.uuid), 0, std::nullopt, config);
    auto body = co_await std::move(downloading);
    if (!body) {
      if (isCancelled(co_await this_coro::cancellation_state)) co_return cancelled();
      log("Skipping device " + file.uuid + ": " + body.error().description());
      continue;
    }
    total += merge(std::move(*body), file, tagDb_, assets);
  }
  log("Cross-device download complete: " + decimal(total) + " total tags applied");
  co_return total;
}

Async<std::vector<RemoteTagFile>> TagSyncService::listTagFiles(S3Config config) const {
  const auto listPrefix = config.prefix + tagsPrefix_;
  const auto url =
      Url::parse(transport::bucketUrl(config) + "?list-type=2&prefix=" +
                 platform::percentEncode(listPrefix, platform::kUrlQueryValue) + "&max-keys=1000");
  if (!url) co_return std::unexpected(TagSyncError::downloadFailed("Invalid list URL"));
  auto sending = HttpSession::shared().send(signedGet(config, *url, {}, kLargestListing));
  const auto text = bodyOf(co_await std::move(sending), "ListObjects HTTP ");
  if (!text) co_return std::unexpected(text.error());
  if (!platform::isUtf8(*text)) {
    co_return std::unexpected(TagSyncError::parseError("Invalid UTF-8 in ListObjects response"));
  }
  co_return tagsync::tagFilesInListing(*text, listPrefix);
}

Async<std::string> TagSyncService::downloadFromS3(std::string key, std::int64_t rangeStart,
                                                  std::optional<std::int64_t> rangeEnd,
                                                  S3Config config) {
  const auto url = Url::parse(transport::bucketUrl(config) + "/" + config.prefix + key);
  if (!url) co_return std::unexpected(TagSyncError::downloadFailed("Invalid URL"));
  AWSSignatureV4::Headers headers;
  if (rangeEnd) headers["Range"] = "bytes=" + decimal(rangeStart) + "-" + decimal(*rangeEnd);
  auto sending = HttpSession::shared().send(signedGet(config, *url, headers, kLargestTagObject));
  co_return bodyOf(co_await std::move(sending), "HTTP error: ");
}

}  // namespace orvane
