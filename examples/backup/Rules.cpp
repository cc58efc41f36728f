#include "Rules.h"

#include <orvane/platform/http/UrlError.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/TalvexAPIService.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

namespace backup {

using orvane::platform::UrlErrorCode;

namespace {

/// The status of the store's answer, if that is what the error is about.
std::optional<std::int64_t> statusOf(const orvane::Error& error) {
  if (const auto* store = error.as<orvane::S3Error>()) return store->statusCode();
  const bool listing = error.domain() == orvane::TalvexAPIService::kDomain && error.code() > 0;
  return listing ? std::optional(error.code()) : std::nullopt;
}

}  // namespace

bool isUnreachable(const orvane::Error& error) {
  using enum UrlErrorCode;
  constexpr std::array kCut = {cannotFindHost, cannotConnectToHost, dnsLookupFailed,
                               notConnectedToInternet};
  return error.domain() == orvane::Error::kUrlLoading &&
         std::ranges::count(kCut, static_cast<UrlErrorCode>(error.code())) > 0;
}

bool isCancelled(const orvane::Error& error) {
  return error.domain() == orvane::Error::kUrlLoading &&
         error.code() == static_cast<std::int64_t>(UrlErrorCode::cancelled);
}

bool isRefused(const orvane::Error& error) {
  const auto status = statusOf(error);
  return status == 403 || status == 404;
}

std::string explanation(const orvane::Error& error) {
  const auto status = statusOf(error);
  if (!status) return error.description();
  // What else the answer says is for programs.
  std::string text = "HTTP error " + std::to_string(*status);
  if (status == 403) text += " (check keys, bucket and this machine's clock)";
  if (status == 404) text += " (check endpoint and bucket)";
  return text;
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
