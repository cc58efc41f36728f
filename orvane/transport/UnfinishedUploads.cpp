#include <orvane/transport/UnfinishedUploads.h>

#include <orvane/platform/base/PercentEncoding.h>
#include <orvane/platform/http/HttpSession.h>
#include <orvane/transport/BucketRequests.h>
#include <orvane/transport/Listing.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/XmlText.h>
#include <orvane/transport/internal/MultipartProtocol.h>

#include <ctime>
#include <optional>
#include <utility>

namespace orvane {
namespace {

using transport::nextElement;

/// Where a page begins: behind this upload.
struct Marker {
  std::string key;
  std::string uploadId;

  friend bool operator==(const Marker&, const Marker&) = default;
};

std::optional<Url> pageUrl(const S3Config& config, std::string_view prefix, const Marker& after) {
  std::string text = transport::bucketUrl(config).append("?uploads&prefix=");
  const auto append = [&text](std::string_view value) {
    platform::appendPercentEncoded(text, value, platform::kUrlUnreserved);
  };
  append(prefix);
  if (!after.key.empty()) {
    text.append("&key-marker=");
    append(after.key);
    text.append("&upload-id-marker=");
    append(after.uploadId);
  }
  return Url::parse(std::move(text));
}

std::string textIn(std::string_view element, std::string_view name) {
  return withoutXmlReferences(nextElement(element, name).value_or(""));
}

/// A time like "2026-01-31T12:00:00.000Z", to the second.
std::optional<std::chrono::sys_seconds> timeIn(const std::string& text) {
  std::tm time{};
  if (strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &time) == nullptr) return std::nullopt;
  return std::chrono::sys_seconds(std::chrono::seconds(timegm(&time)));
}

/// Appends what a page lists; the marker of the next one, if there is one.
std::optional<Marker> readPage(std::string_view page, std::vector<UnfinishedUpload>& uploads) {
  std::optional<Marker> next;
  if (textIn(page, "IsTruncated") == "true") {
    next = {.key = textIn(page, "NextKeyMarker"), .uploadId = textIn(page, "NextUploadIdMarker")};
  }
  while (const auto entry = nextElement(page, "Upload")) {
    auto key = textIn(*entry, "Key");
    auto uploadId = textIn(*entry, "UploadId");
    const auto begun = timeIn(textIn(*entry, "Initiated"));
    if (key.empty() || uploadId.empty() || !begun) continue;
    uploads.push_back({.key = std::move(key), .uploadId = std::move(uploadId), .begun = *begun});
  }
  return next;
}

}  // namespace

Result<std::vector<UnfinishedUpload>> listUnfinishedUploads(const S3Config& config,
                                                            std::string_view prefix) {
  const transport::RequestSigner signer(config);
  std::vector<UnfinishedUpload> uploads;
  for (Marker after;;) {
    const auto url = pageUrl(config, prefix, after);
    if (!url) return std::unexpected<Error>(S3Error::invalidURL());
    const auto response = transport::checkedAnswer(
        platform::HttpSession::shared().sendAndWait(signer.signedRequest("GET", *url)));
    if (!response) return std::unexpected(response.error());
    auto next = readPage(response->body, uploads);
    // Keys are listed in order; a store that goes back would never come to an end.
    if (!next || next->key < after.key || *next == after) return uploads;
    after = std::move(*next);
  }
}

}  // namespace orvane
