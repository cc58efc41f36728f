#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::platform {

/// What the module that holds libsecret does; see `SecretServiceStore`.
struct SecretItems {
  Result<std::optional<Bytes>> (*read)(const std::string& application, std::string_view account,
                                       std::chrono::milliseconds timeLimit);
  Result<void> (*replace)(const std::string& application, std::string_view account, ByteView data,
                          std::chrono::milliseconds timeLimit);
};

/// The module's name, and that of the `SecretItems` in it.
inline constexpr const char* kSecretServiceModule = "orvane-secret-service";
inline constexpr const char* kSecretServiceSymbol = "orvaneSecretService";

}  // namespace orvane::platform
