#include <orvane/transport/S3Error.h>

#include <utility>

namespace orvane {

S3Error S3Error::httpError(std::int64_t statusCode, std::string_view /*body*/) {
  return httpError(statusCode);
}

std::optional<std::int64_t> S3Error::statusCode() const noexcept {
  if (kind_ != Case::httpError) return std::nullopt;
  return statusCode_;
}

std::string S3Error::errorDescription() const {
  switch (kind_) {
    case Case::httpError:
      return "HTTP error " + std::to_string(statusCode_);
    case Case::serverError:
      return message_;
    case Case::invalidURL:
      return "Invalid S3 URL";
    case Case::fileReadError:
      return "Unable to read file";
    case Case::sessionNotConfigured:
      return "Background session not configured";
    case Case::exportFailed:
      return "Photo export failed";
  }
  std::unreachable();
}

S3Error::operator Error() const {
  const auto code = kind_ == Case::httpError ? statusCode_ : static_cast<std::int64_t>(kind_);
  return {kDomain, code, errorDescription(), *this};
}

}  // namespace orvane
