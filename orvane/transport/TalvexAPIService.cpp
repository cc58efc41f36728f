#include <orvane/transport/TalvexAPIService.h>

#include <orvane/platform/base/PercentEncoding.h>
#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/http/HttpSession.h>
#include <orvane/platform/http/UrlError.h>
#include <orvane/transport/BucketRequests.h>
#include <orvane/transport/Listing.h>
#include <orvane/transport/XmlText.h>

#include <iterator>
#include <optional>
#include <utility>

namespace orvane {
namespace {

struct Page {
  std::vector<KeyETagPair> pairs;
  std::optional<std::string> continuationToken;
};

std::optional<Url> pageUrl(const S3Config& config, std::string_view prefix,
                           const std::optional<std::string>& continuationToken) {
  std::string text = transport::bucketUrl(config).append("?list-type=2&prefix=");
  platform::appendPercentEncoded(text, prefix, platform::kUrlQueryValue);
  text.append("&max-keys=1000");
  if (continuationToken) {
    // The answer is XML and the request is not: a token handed back with its references is another
    // one, by which a store may repeat a page for ever.
    const auto token = withoutXmlReferences(*continuationToken);
    text.append("&continuation-token=");
    platform::appendPercentEncoded(text, token, platform::kUrlQueryValue);
  }
  return Url::parse(std::move(text));
}

Result<Page> readPage(const HttpResponse& answer) {
  const bool isText = platform::isUtf8(answer.body);
  if (answer.status >= transport::kFirstFailureStatus) {
    return std::unexpected(Error(TalvexAPIService::kDomain, answer.status,
                                 "ListObjects HTTP " + std::to_string(answer.status) + ": " +
                                     (isText ? answer.body : std::string())));
  }
  if (!isText) {
    return std::unexpected(Error(TalvexAPIService::kDomain, -1, "Invalid response encoding"));
  }
  return Page{.pairs = transport::parseKeyETagPairs(answer.body),
              .continuationToken = transport::parseToken(answer.body)};
}

Result<Page> listPage(const S3Config& config, std::string_view prefix,
                      const std::optional<std::string>& continuationToken) {
  const auto url = pageUrl(config, prefix, continuationToken);
  if (!url) return std::unexpected(platform::urlError(platform::UrlErrorCode::badURL));
  auto request = transport::RequestSigner(config).signedRequest("GET", *url);
  const auto answer = platform::HttpSession::shared().sendAndWait(std::move(request));
  if (!answer) return std::unexpected(answer.error());
  return readPage(*answer);
}

}  // namespace

TalvexAPIService& TalvexAPIService::shared() {
  static auto& instance = *new TalvexAPIService;
  return instance;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): an operation of the instance
Result<std::vector<KeyETagPair>> TalvexAPIService::listObjects(const S3Config& config,
                                                               std::string_view prefix) {
  std::vector<KeyETagPair> objects;
  std::optional<std::string> continuationToken;
  do {
    auto page = listPage(config, prefix, continuationToken);
    if (!page) return std::unexpected(std::move(page.error()));
    objects.insert(objects.end(), std::move_iterator(page->pairs.begin()),
                   std::move_iterator(page->pairs.end()));
    continuationToken = std::move(page->continuationToken);
  } while (continuationToken);
  return objects;
}

}  // namespace orvane
