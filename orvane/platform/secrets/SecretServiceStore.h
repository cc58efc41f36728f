#pragma once

#include <orvane/platform/secrets/SecureStore.h>

#include <chrono>
#include <string>
#include <utility>

namespace orvane {

/// Keeps items in the desktop's Secret Service: the keyring of GNOME, the wallet of KDE and others
/// that speak its D-Bus protocol. A host chooses it in `HostOptions::secureStore`.
///
/// An item carries the application's name and the account name as its attributes, and lies in the
/// collection that the service names "default": usually the one that is unlocked by logging in,
/// kept on this device's disk. An item of the account in any other collection is read too, and
/// replaced by one in the default collection. The store sends nothing to other devices; what
/// copies or synchronises the service's own files, or the home folder, is beyond its reach. Values
/// travel over the session bus encrypted where the service can.
///
/// No dialogue is ever shown: what would need one (a locked collection, a service that asks for
/// each access, a first collection that is still to be made) fails with `needsUser`. When no item
/// is found while the default collection is locked or there is none, reading fails with that too,
/// since some services find nothing in locked collections, and nothing could be stored either.
/// `unavailable` says that there is no session bus, no service on it (one that the bus can start is
/// started), or no answer in time; `invalidAccount` that the name is not UTF-8 or holds a NUL. The
/// library loads libsecret when a store is first used; where its module is not built or installed,
/// every operation fails with `unavailable`.
///
/// Every operation speaks over a connection of its own, in a main context of its own: a service
/// that has come up since is found, and it does not matter whether the host runs a GLib main loop.
/// It must not be used in a child that was forked without exec.
class SecretServiceStore final : public SecureStore {
 public:
  /// `application` tells the items of this application from those of others; the host's identifier
  /// is a good one. `timeLimit`: how long an operation may take before it fails with `unavailable`,
  /// at most one hour. Starting the service and deriving a key take their time on a machine that is
  /// just logging in.
  explicit SecretServiceStore(std::string application,
                              std::chrono::milliseconds timeLimit = std::chrono::seconds(25))
      : application_(std::move(application)), timeLimit_(timeLimit) {}

  [[nodiscard]] Result<std::optional<Bytes>> read(std::string_view account) override;
  [[nodiscard]] Result<void> replace(std::string_view account, ByteView data) override;

 private:
  std::string application_;
  std::chrono::milliseconds timeLimit_;
};

}  // namespace orvane
