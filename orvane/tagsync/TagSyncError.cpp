#include <orvane/tagsync/TagSyncError.h>

#include <cstdint>

namespace orvane {
namespace {

std::string_view beginningOf(TagSyncError::Case kind) {
  switch (kind) {
    case TagSyncError::Case::uploadFailed:
      return "Tag upload failed: ";
    case TagSyncError::Case::downloadFailed:
      return "Tag download failed: ";
    case TagSyncError::Case::metadataError:
      return "Metadata fetch failed: ";
    case TagSyncError::Case::parseError:
      return "JSONL parse error: ";
    case TagSyncError::Case::databaseError:
      return "Database error: ";
  }
  std::unreachable();
}

}  // namespace

std::string TagSyncError::errorDescription() const {
  return std::string(beginningOf(kind_)).append(detail_);
}

TagSyncError::operator Error() const {
  return {kDomain, static_cast<std::int64_t>(kind_), errorDescription(), *this};
}

}  // namespace orvane
