#pragma once

#include <optional>
#include <string_view>

namespace orvane::transport {

struct ElementTags {
  std::string_view opening;
  std::string_view closing;
};

/// The text between the first opening tag and the first closing tag after it, as it stands; `text`
/// then begins behind it. Nothing when there is no such pair.
inline std::optional<std::string_view> nextElement(std::string_view& text,
                                                   const ElementTags& tags) {
  const auto opening = text.find(tags.opening);
  if (opening == std::string_view::npos) return std::nullopt;
  const auto start = opening + tags.opening.size();
  const auto end = text.find(tags.closing, start);
  if (end == std::string_view::npos) return std::nullopt;
  const auto element = text.substr(start, end - start);
  text.remove_prefix(end + tags.closing.size());
  return element;
}

}  // namespace orvane::transport
