#include <orvane/transport/AWSSignatureV4.h>

#include <orvane/platform/base/Ascii.h>
#include <orvane/platform/base/PercentEncoding.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <functional>
#include <utility>
#include <vector>

namespace orvane {
namespace {

using platform::hexString;
using platform::sha256;

constexpr std::string_view kAlgorithm = "AWS4-HMAC-SHA256";
constexpr std::size_t kShortDateLength = 8;
constexpr platform::CharacterSet kPathUnreserved =
    platform::kUrlUnreserved + platform::CharacterSet("/");

std::string canonicalUri(std::string_view encodedPath) {
  if (encodedPath.empty()) return "/";
  return platform::percentEncode(platform::percentDecode(encodedPath), kPathUnreserved);
}

/// Decoded and encoded again, so that equal texts are written alike.
std::string canonicalQueryText(std::string_view text) {
  if (std::ranges::all_of(text, platform::kUrlUnreserved)) return std::string(text);
  const auto decoded = platform::percentDecodeText(text);
  return platform::percentEncode(decoded ? std::string_view(*decoded) : text,
                                 platform::kUrlUnreserved);
}

/// Inserts behind the elements with the same or a smaller key.
template <class T, class Key>
void insertSorted(std::vector<T>& sorted, T element, Key key) {
  const auto place = std::ranges::upper_bound(sorted, std::invoke(key, element), {}, key);
  sorted.insert(place, std::move(element));
}

std::string joined(std::initializer_list<std::string_view> pieces) {
  std::string text;
  std::size_t length = 0;
  for (const auto piece : pieces) length += piece.size();
  text.reserve(length);
  for (const auto piece : pieces) text.append(piece);
  return text;
}

platform::Digest hmac(ByteView key, std::string_view data) {
  return platform::hmacSha256(key, bytesOf(data));
}

/// A header field in the order in which it is signed. The texts belong to others.
struct Field {
  std::string_view loweredName;
  std::string_view name;
  std::string_view value;
};
using Fields = std::vector<Field>;

struct CanonicalRequest {
  std::string text;
  std::string signedHeaders;
};

/// `headers` and the signer's own fields, which replace those spelled like them, sorted by their
/// lower-cased names. `loweredNames` keeps the names that had to be lower-cased.
Fields sortedFields(const AWSSignatureV4::Headers& headers, const std::array<Field, 3>& own,
                    std::string& loweredNames) {
  Fields fields;
  fields.reserve(headers.size() + own.size() + 1);
  std::size_t length = 0;
  for (const auto& [name, value] : headers) length += name.size();
  loweredNames.reserve(length);  // The views stay valid while it grows.
  for (const auto& [name, value] : headers) {
    if (std::ranges::find(own, name, &Field::name) != own.end()) continue;
    const auto start = loweredNames.size();
    for (const char c : name) loweredNames.push_back(platform::lowered(c));
    insertSorted(fields, {std::string_view(loweredNames).substr(start), name, value},
                 &Field::loweredName);
  }
  for (const auto& field : own) insertSorted(fields, field, &Field::loweredName);
  return fields;
}

/// The pattern yyyyMMdd'T'HHmmss'Z' in UTC.
std::string iso8601Formatter(AWSSignatureV4::TimePoint date) {
  const auto seconds =
      std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
  std::tm calendar{};
  gmtime_r(&seconds, &calendar);
  std::array<char, 32> text{};
  const auto length = std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &calendar);
  return {text.data(), length};
}

std::string canonicalQueryString(const Url& from) {
  std::string_view query = from.encodedQuery();
  if (query.empty()) return {};
  std::vector<std::pair<std::string, std::string>> items;
  items.reserve(static_cast<std::size_t>(std::ranges::count(query, '&')) + 1);
  for (bool more = true; more;) {
    const auto end = query.find('&');
    const auto part = query.substr(0, end);
    const auto equals = part.find('=');
    const auto value =
        equals == std::string_view::npos ? std::string_view{} : part.substr(equals + 1);
    insertSorted(items, {canonicalQueryText(part.substr(0, equals)), canonicalQueryText(value)},
                 &std::pair<std::string, std::string>::first);
    more = end != std::string_view::npos;
    if (more) query.remove_prefix(end + 1);
  }

  std::string canonical;
  canonical.reserve(from.encodedQuery().size() + items.size());
  for (const auto& [name, value] : items) {
    if (!canonical.empty()) canonical.push_back('&');
    canonical.append(name).append("=").append(value);
  }
  return canonical;
}

CanonicalRequest buildCanonicalRequest(std::string_view method, const Url& url,
                                       const Fields& headers, std::string_view bodyHash) {
  CanonicalRequest result;
  auto& text = result.text;
  text.reserve(512);  // Enough for what the engine itself sends.
  result.signedHeaders.reserve(64);
  text.append(method).append("\n");
  text.append(canonicalUri(url.encodedPath())).append("\n");
  text.append(canonicalQueryString(url)).append("\n");
  for (const auto& field : headers) {
    text.append(field.loweredName).append(":").append(field.value).append("\n");
    if (!result.signedHeaders.empty()) result.signedHeaders.push_back(';');
    result.signedHeaders.append(field.loweredName);
  }
  text.append("\n").append(result.signedHeaders).append("\n").append(bodyHash);
  return result;
}

std::string buildStringToSign(std::string_view date, std::string_view credentialScope,
                              std::string_view canonicalRequest) {
  return joined({kAlgorithm, "\n", date, "\n", credentialScope, "\n",
                 hexString(sha256(bytesOf(canonicalRequest)))});
}

}  // namespace

AWSSignatureV4::AWSSignatureV4(std::string accessKey, std::string secretKey, std::string region)
    : accessKey_(std::move(accessKey)),
      secretKey_(std::move(secretKey)),
      region_(std::move(region)) {}

HttpRequest AWSSignatureV4::signedRequest(std::string_view method, const Url& url,
                                          const Headers& headers, std::optional<ByteView> body,
                                          bool unsignedPayload, TimePoint date) const {
  const std::string amzDate = iso8601Formatter(date);
  const auto shortDate = std::string_view(amzDate).substr(0, kShortDateLength);
  const std::string payloadHash = unsignedPayload ? std::string("UNSIGNED-PAYLOAD")
                                                  : hexString(sha256(body.value_or(ByteView{})));
  std::string loweredNames;
  auto fields = sortedFields(headers,
                             {{{"host", "Host", url.host()},
                               {"x-amz-content-sha256", "x-amz-content-sha256", payloadHash},
                               {"x-amz-date", "x-amz-date", amzDate}}},
                             loweredNames);

  const auto canonical = buildCanonicalRequest(method, url, fields, payloadHash);
  const auto scope = joined({shortDate, "/", region_, "/", service_, "/aws4_request"});
  const auto stringToSign = buildStringToSign(amzDate, scope, canonical.text);
  const auto signature = hmac(buildSigningKey(shortDate), stringToSign);
  const auto authorization =
      joined({kAlgorithm, " Credential=", accessKey_, "/", scope,
              ", SignedHeaders=", canonical.signedHeaders, ", Signature=", hexString(signature)});
  fields.push_back({{}, "Authorization", authorization});

  HttpRequest request{.method = std::string(method), .url = url, .headers = {}};
  request.headers.reserve(fields.size());
  for (const auto& field : fields) request.headers.set(field.name, field.value);
  return request;
}

platform::Digest AWSSignatureV4::buildSigningKey(std::string_view shortDate) const {
  const auto dateKey = hmac(bytesOf(joined({"AWS4", secretKey_})), shortDate);
  const auto regionKey = hmac(dateKey, region_);
  const auto serviceKey = hmac(regionKey, service_);
  return hmac(serviceKey, "aws4_request");
}

}  // namespace orvane
