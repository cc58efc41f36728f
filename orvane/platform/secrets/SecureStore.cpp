#include <orvane/platform/secrets/SecureStore.h>

#include <string>
#include <utility>

namespace orvane {

std::string_view describe(SecureStoreErrorCode code) noexcept {
  switch (code) {
    case SecureStoreErrorCode::failed:
      return "The secure store reports an error";
    case SecureStoreErrorCode::invalidAccount:
      return "The secure store cannot hold an item of that name";
    case SecureStoreErrorCode::unavailable:
      return "The secure store is not available";
    case SecureStoreErrorCode::needsUser:
      return "The secure store cannot answer without the user";
  }
  return "The secure store failed";
}

Error SecureStore::error(SecureStoreErrorCode code, std::string_view detail) {
  std::string description(describe(code));
  if (!detail.empty()) description.append(" (").append(detail).append(")");
  return {kErrorDomain, static_cast<int>(code), std::move(description)};
}

}  // namespace orvane
