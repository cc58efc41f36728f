#include <orvane/platform/base/PosixError.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace orvane::platform {

Error posixError(int number, std::string_view action) {
  return {Error::kPosix, number,
          std::string(action) + ": " + std::generic_category().message(number)};
}

Error lastPosixError(std::string_view action) { return posixError(errno, action); }

}  // namespace orvane::platform
