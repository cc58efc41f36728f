#include <orvane/tagsync/internal/TagListing.h>
#include <orvane/transport/internal/ETag.h>

#include <optional>

namespace orvane::internal {
namespace {

/// What lies between the first `open` and the first `close` after it. `end` gets the position after
/// `close`.
std::optional<std::string_view> between(std::string_view text, std::string_view open,
                                        std::string_view close, std::size_t& end) {
  const auto found = text.find(open);
  if (found == std::string_view::npos) return std::nullopt;
  const auto begin = found + open.size();
  const auto length = text.substr(begin).find(close);
  if (length == std::string_view::npos) return std::nullopt;
  end = begin + length + close.size();
  return text.substr(begin, length);
}

std::optional<std::string_view> between(std::string_view text, std::string_view open,
                                        std::string_view close) {
  std::size_t ignored = 0;
  return between(text, open, close, ignored);
}

/// The identifier in a tag object's key; empty for every other key.
std::string_view identifierIn(std::string_view key, std::string_view listPrefix) {
  if (!key.starts_with(listPrefix) || !key.ends_with(kTagFileName)) return {};
  if (key.size() < listPrefix.size() + kTagFileName.size()) return {};
  key.remove_prefix(listPrefix.size());
  key.remove_suffix(kTagFileName.size());
  return key.contains('/') ? std::string_view() : key;
}

}  // namespace

std::vector<RemoteTagFile> tagFilesInListing(std::string_view text, std::string_view listPrefix) {
  std::vector<RemoteTagFile> files;
  std::size_t end = 0;
  while (const auto element = between(text, "<Contents>", "</Contents>", end)) {
    text.remove_prefix(end);
    const auto key = between(*element, "<Key>", "</Key>");
    const auto uuid = identifierIn(key.value_or(""), listPrefix);
    if (uuid.empty()) continue;
    const auto eTag = between(*element, "<ETag>", "</ETag>");
    files.push_back({std::string(uuid), etagFromXml(eTag.value_or(""))});
  }
  return files;
}

}  // namespace orvane::internal
