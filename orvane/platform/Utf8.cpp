#include <orvane/platform/Utf8.h>
#include <simdjson.h>

namespace orvane::platform {

bool isUtf8(std::string_view bytes) noexcept {
  return simdjson::validate_utf8(bytes.data(), bytes.size());
}

}  // namespace orvane::platform
