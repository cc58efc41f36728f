#include <orvane/platform/http/HttpDate.h>

#include <curl/curl.h>

namespace orvane::platform {

std::optional<std::chrono::sys_seconds> httpDate(const std::string& value) {
  const std::time_t time = curl_getdate(value.c_str(), nullptr);
  if (time == -1) return std::nullopt;
  return std::chrono::sys_seconds(std::chrono::seconds(time));
}

}  // namespace orvane::platform
