#include "Rules.h"

#include <orvane/platform/UrlError.h>
#include <orvane/transport/S3Error.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <unordered_map>

namespace backup {

bool isTransient(const orvane::Error& error) {
  if (const auto* store = error.as<orvane::S3Error>()) {
    const auto status = store->statusCode();
    return status && (*status >= 500 || *status == 429);
  }
  using orvane::platform::UrlErrorCode;
  const auto code = static_cast<UrlErrorCode>(error.code());
  return error.domain() == orvane::Error::kUrlLoading && code != UrlErrorCode::cancelled &&
         code != UrlErrorCode::badURL && code != UrlErrorCode::unsupportedURL;
}

std::string explanation(const orvane::Error& error) {
  const auto* store = error.as<orvane::S3Error>();
  const auto status = store == nullptr ? std::nullopt : store->statusCode();
  if (status == 403) return error.description() + " (check keys, bucket and this machine's clock)";
  if (status == 404) return error.description() + " (check endpoint and bucket)";
  return error.description();
}

std::string_view contentTypeOf(const std::filesystem::path& file) {
  static const std::unordered_map<std::string, std::string_view> kTypes = {
      {".jpg", "image/jpeg"}, {".jpeg", "image/jpeg"}, {".png", "image/png"},
      {".gif", "image/gif"},  {".webp", "image/webp"}, {".heic", "image/heic"},
      {".tif", "image/tiff"}, {".tiff", "image/tiff"}, {".mp4", "video/mp4"},
      {".m4v", "video/mp4"},  {".txt", "text/plain"},  {".mov", "video/quicktime"},
  };
  std::string extension = file.extension().string();
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto found = kTypes.find(extension);
  return found == kTypes.end() ? "application/octet-stream" : found->second;
}

}  // namespace backup
