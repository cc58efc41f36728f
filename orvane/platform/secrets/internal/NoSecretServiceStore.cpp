#include <orvane/platform/secrets/SecretServiceStore.h>

// Stands in for SecretServiceStore.cpp where the library is built without libsecret.

namespace orvane {
namespace {

std::unexpected<Error> builtWithout() {
  return std::unexpected(SecureStore::error(SecureStoreErrorCode::unavailable,
                                            "the library was built without the Secret Service"));
}

}  // namespace

Result<std::optional<Bytes>> SecretServiceStore::read(std::string_view) { return builtWithout(); }

Result<void> SecretServiceStore::replace(std::string_view, ByteView) { return builtWithout(); }

}  // namespace orvane
