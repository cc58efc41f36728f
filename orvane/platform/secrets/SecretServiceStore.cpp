#include <orvane/platform/secrets/SecretServiceStore.h>

#include <orvane/platform/base/Helpers.h>
#include <orvane/platform/secrets/internal/SecretService.h>

namespace orvane {
namespace {

using platform::SecretItems;

Result<const SecretItems*> secretItems() {
  const auto found =
      platform::symbolOfModule(platform::kSecretServiceModule, platform::kSecretServiceSymbol);
  if (found) return static_cast<const SecretItems*>(*found);
  return std::unexpected(SecureStore::error(SecureStoreErrorCode::unavailable, found.error()));
}

}  // namespace

Result<std::optional<Bytes>> SecretServiceStore::read(std::string_view account) {
  const auto items = secretItems();
  if (!items) return std::unexpected(items.error());
  return (*items)->read(application_, account, timeLimit_);
}

Result<void> SecretServiceStore::replace(std::string_view account, ByteView data) {
  const auto items = secretItems();
  if (!items) return std::unexpected(items.error());
  return (*items)->replace(application_, account, data, timeLimit_);
}

}  // namespace orvane
