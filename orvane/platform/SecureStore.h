#pragma once

#include <orvane/Error.h>
#include <orvane/platform/Bytes.h>

#include <optional>
#include <string_view>

namespace orvane {

/// Keeps small secret-like items of this user on this device, one under each account name.
///
/// A host may bring its own and name it in `HostOptions`. Any thread may call it, several at once.
/// Every operation blocks until the item is read, or safely stored.
class SecureStore {
 public:
  virtual ~SecureStore() = default;

  /// The item's bytes, possibly none at all; nothing when there is no such item; an error when it
  /// cannot be told, for example because the store is locked.
  [[nodiscard]] virtual Result<std::optional<Bytes>> read(std::string_view account) = 0;

  /// Stores the item. Afterwards the account holds exactly this one; after a failure, the former
  /// one or none.
  [[nodiscard]] virtual Result<void> replace(std::string_view account, ByteView data) = 0;

 protected:
  SecureStore() = default;
  SecureStore(const SecureStore&) = default;
  SecureStore& operator=(const SecureStore&) = default;
};

}  // namespace orvane
