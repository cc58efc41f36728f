// URLs and what becomes of them in a request: pieces stand in the text as they were written, what
// is escaped can be read again, and any URL can be signed.

#include <orvane/platform/base/PercentEncoding.h>
#include <orvane/platform/http/Url.h>
#include <orvane/transport/AWSSignatureV4.h>

#include "Require.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using namespace orvane::platform;

void checkEscapes(const std::string& text) {
  for (const auto& allowed : {kUrlUnreserved, kUrlPathAllowed, kUrlQueryValue}) {
    require(percentDecode(percentEncode(text, allowed)) == text);
  }
  const auto url = orvane::Url::parse("http://h/")->withQuery({{text, text}});
  const auto escaped = percentEncode(text, kUrlUnreserved);
  require(url && url->encodedQuery() == escaped + "=" + escaped);
}

void checkSigning(const orvane::Url& url) {
  const orvane::AWSSignatureV4 signer("AK", "SK", "eu-west-1");
  const auto request = signer.signedRequest("GET", url, {}, {}, false, {});
  require(request.headers.get("Authorization").has_value());
  require(request.url == url);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  checkEscapes(text);
  const auto url = orvane::Url::parse(text);
  if (!url) return 0;
  require(url->text() == text);
  std::size_t position = 0;
  for (const auto piece :
       {url->scheme(), url->host(), url->port(), url->encodedPath(), url->encodedQuery()}) {
    if (piece.empty()) continue;
    const auto begin = static_cast<std::size_t>(piece.data() - url->text().data());
    require(begin >= position && begin + piece.size() <= text.size());
    position = begin + piece.size();
  }
  checkSigning(*url);
  return 0;
}
