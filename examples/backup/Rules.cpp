#include "Rules.h"

#include <orvane/transport/RetryPolicy.h>
#include <orvane/transport/S3Error.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>

namespace backup {

using orvane::RetryPolicy;

bool mayRetry(const orvane::Error& error, const orvane::UploadRecord& record,
              std::int64_t retriesInRun) {
  return RetryPolicy::isRetryable(error) && retriesInRun < RetryPolicy::maxSessionRetries &&
         record.retryCount < RetryPolicy::maxLifetimeRetries;
}

std::chrono::duration<double> retryDelay(std::int64_t retriesInRun) {
  static std::minstd_rand random(std::random_device{}());
  const double delay = std::ldexp(RetryPolicy::baseDelay, static_cast<int>(retriesInRun));
  const double chance = std::uniform_real_distribution(1.0, 1.5)(random);
  return std::chrono::duration<double>(std::min(delay * chance, RetryPolicy::maxDelay));
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
