#include <orvane/platform/base/Uuid.h>

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace orvane::platform {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";
constexpr std::string_view kForm = "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";

}  // namespace

std::string randomUuid() {
  std::array<std::uint8_t, 16> bytes{};
  if (::getentropy(bytes.data(), bytes.size()) != 0) {
    throw std::system_error(errno, std::generic_category(), "getentropy");
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // The version: random.
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // The variant: RFC 4122.

  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}

std::optional<std::string> uuidFrom(std::string_view text) {
  std::string uuid(text);
  if (uuid.size() != kForm.size()) return std::nullopt;
  for (std::size_t i = 0; i < uuid.size(); ++i) {
    if (uuid[i] >= 'a' && uuid[i] <= 'f') uuid[i] = static_cast<char>(uuid[i] - 'a' + 'A');
    const bool fits = kForm[i] == '-' ? uuid[i] == '-' : kDigits.contains(uuid[i]);
    if (!fits) return std::nullopt;
  }
  return uuid;
}

}  // namespace orvane::platform
