#include <orvane/platform/Ascii.h>
#include <orvane/platform/PercentEncoding.h>
#include <orvane/transport/AWSSignatureV4.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace orvane {
namespace {

using platform::hexString;
using platform::sha256;

constexpr std::string_view kAlgorithm = "AWS4-HMAC-SHA256";
constexpr std::size_t kShortDateLength = 8;
constexpr platform::CharacterSet kPathUnreserved{"-._~/"};

void appendDigits(std::string& text, int value, int width) {
  std::array<char, 10> digits{};
  for (int i = width - 1; i >= 0; --i, value /= 10) {
    digits[static_cast<std::size_t>(i)] = static_cast<char>('0' + value % 10);
  }
  text.append(digits.data(), static_cast<std::size_t>(width));
}

std::string canonicalUri(std::string_view encodedPath) {
  if (encodedPath.empty()) return "/";
  return platform::percentEncode(platform::percentDecode(encodedPath), kPathUnreserved);
}

/// Decoded and encoded again, so that equal texts are written alike.
std::string canonicalQueryText(std::string_view text) {
  const auto decoded = platform::percentDecodeText(text);
  return platform::percentEncode(decoded ? std::string_view(*decoded) : text,
                                 platform::kUrlUnreserved);
}

std::string joined(std::initializer_list<std::string_view> pieces) {
  std::string text;
  std::size_t length = 0;
  for (const auto piece : pieces) length += piece.size();
  text.reserve(length);
  for (const auto piece : pieces) text.append(piece);
  return text;
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
  Headers all = headers;
  all["Host"] = url.host();
  all["x-amz-date"] = amzDate;
  all["x-amz-content-sha256"] = payloadHash;

  const auto canonical = buildCanonicalRequest(method, url, all, payloadHash);
  const auto scope = joined({shortDate, "/", region_, "/", service_, "/aws4_request"});
  const auto stringToSign = buildStringToSign(amzDate, scope, canonical.text);
  const auto signature = hmac(buildSigningKey(shortDate), stringToSign);
  all["Authorization"] =
      joined({kAlgorithm, " Credential=", accessKey_, "/", scope,
              ", SignedHeaders=", canonical.signedHeaders, ", Signature=", hexString(signature)});

  HttpRequest request{.method = std::string(method), .url = url, .headers = {}};
  for (const auto& [name, value] : all) request.headers.set(name, value);
  return request;
}

std::string AWSSignatureV4::iso8601Formatter(TimePoint date) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
  const auto day = std::chrono::floor<std::chrono::days>(seconds);
  const std::chrono::year_month_day calendar(day);
  const std::chrono::hh_mm_ss time(seconds - day);
  std::string text;
  text.reserve(16);
  appendDigits(text, static_cast<int>(calendar.year()), 4);
  appendDigits(text, static_cast<int>(static_cast<unsigned>(calendar.month())), 2);
  appendDigits(text, static_cast<int>(static_cast<unsigned>(calendar.day())), 2);
  text.push_back('T');
  appendDigits(text, static_cast<int>(time.hours().count()), 2);
  appendDigits(text, static_cast<int>(time.minutes().count()), 2);
  appendDigits(text, static_cast<int>(time.seconds().count()), 2);
  text.push_back('Z');
  return text;
}

std::string AWSSignatureV4::canonicalQueryString(const Url& from) {
  std::string_view query = from.encodedQuery();
  if (query.empty()) return {};
  std::vector<std::pair<std::string, std::string>> items;
  for (bool more = true; more;) {
    const auto end = query.find('&');
    const auto part = query.substr(0, end);
    const auto equals = part.find('=');
    const auto value =
        equals == std::string_view::npos ? std::string_view{} : part.substr(equals + 1);
    items.emplace_back(canonicalQueryText(part.substr(0, equals)), canonicalQueryText(value));
    more = end != std::string_view::npos;
    if (more) query.remove_prefix(end + 1);
  }
  std::ranges::stable_sort(items, {}, [](const auto& item) -> const auto& { return item.first; });

  std::string canonical;
  for (const auto& [name, value] : items) {
    if (!canonical.empty()) canonical.push_back('&');
    canonical.append(name).append("=").append(value);
  }
  return canonical;
}

AWSSignatureV4::CanonicalRequest AWSSignatureV4::buildCanonicalRequest(std::string_view method,
                                                                       const Url& url,
                                                                       const Headers& headers,
                                                                       std::string_view bodyHash) {
  std::vector<std::pair<std::string, std::string_view>> lines;
  lines.reserve(headers.size());
  for (const auto& [name, value] : headers) lines.emplace_back(platform::lowered(name), value);
  std::ranges::stable_sort(lines, {}, [](const auto& line) -> const auto& { return line.first; });

  CanonicalRequest result;
  auto& text = result.text;
  text.reserve(512);
  text.append(method).append("\n");
  text.append(canonicalUri(url.encodedPath())).append("\n");
  text.append(canonicalQueryString(url)).append("\n");
  for (const auto& [name, value] : lines) {
    text.append(name).append(":").append(value).append("\n");
    if (!result.signedHeaders.empty()) result.signedHeaders.push_back(';');
    result.signedHeaders.append(name);
  }
  text.append("\n").append(result.signedHeaders).append("\n").append(bodyHash);
  return result;
}

std::string AWSSignatureV4::buildStringToSign(std::string_view date,
                                              std::string_view credentialScope,
                                              std::string_view canonicalRequest) {
  return joined({kAlgorithm, "\n", date, "\n", credentialScope, "\n",
                 hexString(sha256(bytesOf(canonicalRequest)))});
}

platform::Digest AWSSignatureV4::buildSigningKey(std::string_view shortDate) const {
  const auto dateKey = hmac(bytesOf(joined({"AWS4", secretKey_})), shortDate);
  const auto regionKey = hmac(dateKey, region_);
  const auto serviceKey = hmac(regionKey, service_);
  return hmac(serviceKey, "aws4_request");
}

platform::Digest AWSSignatureV4::hmac(ByteView key, std::string_view data) {
  return platform::hmacSha256(key, bytesOf(data));
}

}  // namespace orvane
