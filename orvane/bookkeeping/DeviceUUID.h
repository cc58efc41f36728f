#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The stable identifier of this device: made once, kept in the host's secure store, and from the
/// first question on the same for the life of the process.
///
/// Any thread may call it. The first question blocks on the secure store, and with it everybody who
/// asks meanwhile, in this process or in another of the same host: all of them get the same answer.
/// A `SecretServiceStore` that does not answer holds them up for its time limit (25 seconds unless
/// the host says otherwise) twice, to read and to store; other processes wait no longer than 60. A
/// child that was forked without exec must not ask.
class DeviceUUID {
 public:
  /// The account name of the item in the secure store.
  static constexpr std::string_view keychainKey = "device_uuid_v1";

  [[nodiscard]] static DeviceUUID& shared();

  DeviceUUID(const DeviceUUID&) = delete;
  DeviceUUID& operator=(const DeviceUUID&) = delete;

  /// The identifier: a random UUID in upper case (36 characters), or whatever text was stored
  /// before, even none at all.
  ///
  /// Where the store holds none, cannot tell, or holds bytes that are not UTF-8, a new one is
  /// stored in its place. Should that fail too, a line "Keychain save error: " with the error's
  /// code goes to standard output; the new identifier is used all the same, and a later process
  /// that finds none makes another one. Later changes of the stored item are not seen.
  [[nodiscard]] std::string uuid();

  /// Forgets the identifier, not the stored item: the next question reads the store again.
  void resetForTesting();

 private:
  DeviceUUID() = default;
  [[nodiscard]] static std::optional<std::string> loadFromKeychain();
  static void saveToKeychain(std::string_view identifier);

  std::mutex lock_;  ///< Guards `cachedUUID_` and the item in the store.
  std::optional<std::string> cachedUUID_;
};

}  // namespace orvane
