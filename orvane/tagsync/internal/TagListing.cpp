#include <orvane/tagsync/internal/TagListing.h>

#include <orvane/transport/Listing.h>

namespace orvane::tagsync {
namespace {

/// No object has a longer key. What is listed ends up in every row of a device's tags.
constexpr std::size_t kMaximumKeyLength = 1024;

std::string_view firstElement(std::string_view text, std::string_view name) {
  return transport::nextElement(text, name).value_or("");
}

/// The identifier in a tag object's key; empty for every other key.
std::string_view identifierIn(std::string_view key, std::string_view listPrefix) {
  if (!key.starts_with(listPrefix) || !key.ends_with(kTagFileName)) return {};
  if (key.size() > kMaximumKeyLength) return {};
  if (key.size() < listPrefix.size() + kTagFileName.size()) return {};
  key.remove_prefix(listPrefix.size());
  key.remove_suffix(kTagFileName.size());
  return key.contains('/') ? std::string_view() : key;
}

}  // namespace

std::vector<RemoteTagFile> tagFilesInListing(std::string_view text, std::string_view listPrefix) {
  std::vector<RemoteTagFile> files;
  while (const auto entry = transport::nextElement(text, "Contents")) {
    const auto uuid = identifierIn(firstElement(*entry, "Key"), listPrefix);
    if (uuid.empty()) continue;
    const auto eTag = firstElement(*entry, "ETag");
    files.push_back({std::string(uuid), transport::etagFromXml(eTag)});
  }
  return files;
}

}  // namespace orvane::tagsync
