#include <orvane/platform/http/HttpDate.h>

#include <curl/curl.h>

namespace orvane::platform {

using namespace std::chrono_literals;

std::optional<std::chrono::sys_seconds> httpDate(const std::string& value) {
  const std::time_t time = curl_getdate(value.c_str(), nullptr);
  const std::chrono::sys_seconds date{std::chrono::seconds(time)};
  const bool isPlausible =
      date >= std::chrono::sys_days(2000y / 1 / 1) && date < std::chrono::sys_days(2200y / 1 / 1);
  return isPlausible ? std::optional(date) : std::nullopt;
}

}  // namespace orvane::platform
