#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>

#include <optional>
#include <string_view>

namespace orvane {

/// Why a secure store could not answer; the numbers are published and stable.
enum class SecureStoreErrorCode : int {
  failed = -36,          ///< It answered with an error of its own.
  invalidAccount = -50,  ///< The account name cannot be used.
  unavailable = -25291,  ///< There is none, or it does not answer.
  needsUser = -25308,    ///< It is locked, or wants to ask the user something.
};

/// One fixed sentence per code.
[[nodiscard]] std::string_view describe(SecureStoreErrorCode code) noexcept;

/// Keeps small secret-like items of this user on this device, one under each account name.
///
/// A host may bring its own and name it in `HostOptions`. Any thread may call it, several at once.
/// Every operation blocks until the item is read, or safely stored. None ever asks the user for
/// anything.
class SecureStore {
 public:
  /// The domain of errors whose code is a `SecureStoreErrorCode`.
  static constexpr std::string_view kErrorDomain = "SecureStore";

  /// The `Error` of that domain for a code. `detail`, when given, follows the sentence in
  /// parentheses; it must not tell anything of what is stored.
  [[nodiscard]] static Error error(SecureStoreErrorCode code, std::string_view detail = {});

  virtual ~SecureStore() = default;

  /// The item's bytes, possibly none at all; nothing when there is no such item; an error when it
  /// cannot be told, for example because the store is locked.
  [[nodiscard]] virtual Result<std::optional<Bytes>> read(std::string_view account) = 0;

  /// Stores the item. Afterwards the account holds exactly this one; after a failure, the former
  /// one, none, this one, or both, of which a later `read` gives either.
  [[nodiscard]] virtual Result<void> replace(std::string_view account, ByteView data) = 0;

 protected:
  SecureStore() = default;
  SecureStore(const SecureStore&) = default;
  SecureStore& operator=(const SecureStore&) = default;
};

}  // namespace orvane
