#pragma once

#include "support/ChildProcess.h"

#include <cstddef>
#include <optional>
#include <string>

namespace orvane::testing {

/// A message bus of this test alone, in its folder; no service comes up on it by itself but those
/// that the test has described in the folder "services". This process and its children take it for
/// the user's session bus.
class SessionBus {
 public:
  SessionBus();

 private:
  ChildProcess daemon_;
};

/// A real keyring daemon on the test's session bus, its default collection unlocked.
class SecretService {
 public:
  /// Returns once the service can be called.
  SecretService();

  /// The service stays on the bus but does nothing any more.
  void freeze() const;

  /// Locks the default collection.
  static void lock();

  /// Ends the service and starts it again: what it kept in memory is gone, the rest is unlocked.
  void restart();

  /// Deletes the default collection with everything in it.
  static void removeDefault();

  /// How many items the service has under that account name, whoever put them there.
  [[nodiscard]] static std::size_t countItems(const std::string& account);

 private:
  std::optional<ChildProcess> daemon_;
};

}  // namespace orvane::testing
