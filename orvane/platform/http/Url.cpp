#include <orvane/platform/http/Url.h>

#include <orvane/platform/base/PercentEncoding.h>

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include <utility>

namespace orvane {

std::optional<Url> Url::parse(std::string text) {
  Url url;
  url.text_ = std::move(text);
  const auto parsed = boost::urls::parse_uri_reference(url.text_);
  if (!parsed) return std::nullopt;
  // The parser takes what follows a malformed port for the path.
  const auto path = parsed->encoded_path();
  if (parsed->has_authority() && !path.empty() && path.front() != '/') return std::nullopt;

  const auto pieceOf = [&](boost::core::string_view part) {
    return Piece{static_cast<std::size_t>(part.data() - url.text_.data()), part.size()};
  };
  if (parsed->has_scheme()) url.scheme_ = pieceOf(parsed->scheme());
  if (parsed->has_authority()) url.host_ = pieceOf(parsed->encoded_host());
  if (parsed->has_port()) url.port_ = pieceOf(parsed->port());
  url.path_ = pieceOf(parsed->encoded_path());
  if (parsed->has_query()) url.query_ = pieceOf(parsed->encoded_query());
  return url;
}

std::optional<Url> Url::withQuery(std::initializer_list<QueryItem> items) const {
  std::string text = text_.substr(0, path_.begin + path_.length);
  char separator = '?';
  for (const auto& item : items) {
    text.push_back(separator);
    separator = '&';
    platform::appendPercentEncoded(text, item.name, platform::kUrlUnreserved);
    if (!item.value) continue;
    text.push_back('=');
    platform::appendPercentEncoded(text, *item.value, platform::kUrlUnreserved);
  }
  return parse(std::move(text));
}

}  // namespace orvane
