#include <orvane/bookkeeping/MultipartState.h>

#include <utility>

namespace orvane {

MultipartState::MultipartState(std::string assetId, std::string uploadId, std::string key,
                               std::string contentType, std::int64_t totalParts,
                               std::int64_t fileSize, Parts completed)
    : assetId_(std::move(assetId)),
      uploadId_(std::move(uploadId)),
      key_(std::move(key)),
      contentType_(std::move(contentType)),
      totalParts_(totalParts),
      fileSize_(fileSize),
      completedParts(std::move(completed)) {}

}  // namespace orvane
