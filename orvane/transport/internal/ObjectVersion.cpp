#include <orvane/transport/internal/ObjectVersion.h>

#include <orvane/platform/http/HttpDate.h>
#include <orvane/transport/Listing.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/internal/WholeNumber.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace orvane::transport {
namespace {

/// More than any store takes; what is kept of each range still fits into memory.
constexpr std::int64_t kMaxSize = std::int64_t{1} << 46;
constexpr int kWholeObject = 200;
constexpr int kPartOfObject = 206;

std::unexpected<Error> badResponse(std::string text) {
  return std::unexpected<Error>(S3Error::serverError(std::move(text)));
}

Result<ObjectVersion> versionOf(const HttpHeaders& headers, std::int64_t size) {
  ObjectVersion version{.eTagField = std::string(headers.get("ETag").value_or("")),
                        .size = size,
                        .fileModified = modificationTimeIn(headers),
                        .lastModified = std::nullopt};
  if (version.eTag().empty()) return badResponse("Missing ETag");
  if (size > kMaxSize) return badResponse("The object is larger than objects can be");
  version.lastModified = platform::httpDate(std::string(headers.get("Last-Modified").value_or("")));
  const auto encryption = headers.get("x-amz-server-side-encryption").value_or("AES256");
  version.eTagIsOfContent =
      encryption == "AES256" && !headers.get("x-amz-server-side-encryption-customer-algorithm");
  return version;
}

/// The size of the object, where the field names the bytes from `first` on, `length` of them.
std::optional<std::int64_t> sizeIn(std::string_view field, std::int64_t first,
                                   std::int64_t length) {
  const auto slash = field.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto expected = "bytes " + std::to_string(first) + "-" + std::to_string(first + length - 1);
  if (field.substr(0, slash) != expected) return std::nullopt;
  return wholeNumber(field.substr(slash + 1));
}

}  // namespace

std::string ObjectVersion::eTag() const { return etagFromHeader(eTagField); }

std::string ByteRange::headerValue() const {
  return "bytes=" + std::to_string(first) + "-" + std::to_string(first + length - 1);
}

Result<ObjectVersion> versionInHead(const HttpResponse& response) {
  const auto size = wholeNumber(response.headers.get("Content-Length").value_or(""));
  if (!size) return badResponse("Missing Content-Length");
  return versionOf(response.headers, *size);
}

Result<ObjectVersion> versionInRange(const HttpResponse& response, ByteRange range) {
  const auto length = static_cast<std::int64_t>(response.body.size());
  if (response.status == kWholeObject && range.first == 0) {
    return versionOf(response.headers, length);
  }
  const auto field = response.headers.get("Content-Range").value_or("");
  const auto size = sizeIn(field, range.first, length);
  const bool asAsked = response.status == kPartOfObject && size && length > 0 &&
                       length == std::min(range.length, *size - range.first);
  if (!asAsked) return badResponse("The response does not hold the range that was asked for");
  return versionOf(response.headers, *size);
}

}  // namespace orvane::transport
