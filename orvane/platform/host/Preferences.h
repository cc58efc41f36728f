#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace orvane {

/// The user's preferences: small values under keys, kept across restarts of the process.
///
/// Every write is on the disk when it returns; every read sees what any thread or process has
/// written before. Any thread and any process of the host may use them. Nothing reports a failure:
/// what cannot be read is unset, and what cannot be written is forgotten. A file that turns out to
/// be damaged is kept aside, once, as "preferences.sqlite.corrupt" (or "...corrupt-2" and so on),
/// and everything is unset from then on. Processes agree on when to do so by a lock in the folder.
/// A child that was forked without exec after the first use must not use them.
class Preferences {
 public:
  /// The one set of preferences of the process: the file "preferences.sqlite" in the
  /// application-support folder, both for this user alone. Without a data folder nothing is kept.
  [[nodiscard]] static Preferences& shared();

  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  /// The value under `key`; nothing when it is unset or of another kind. Blocks.
  [[nodiscard]] std::optional<bool> boolean(std::string_view key);
  [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key);
  [[nodiscard]] std::optional<Bytes> bytes(std::string_view key);

  /// The same, failing with the database's or a POSIX error where that cannot be told: for example
  /// when another process has held the file for more than 10 seconds.
  [[nodiscard]] Result<std::optional<std::int64_t>> readInteger(std::string_view key);
  [[nodiscard]] Result<std::optional<Bytes>> readBytes(std::string_view key);

  /// Stores a value in place of an earlier one of any kind. Blocks until it is on the disk.
  void set(std::string_view key, bool value);
  void set(std::string_view key, std::int64_t value);
  void set(std::string_view key, ByteView value);
  template <class T>
  void set(std::string_view key, const T* value) = delete;  // A text would be stored as `true`.

  /// Unsets `key`. Blocks.
  void remove(std::string_view key);

 private:
  struct Store;

  Preferences();
  ~Preferences();

  std::unique_ptr<Store> store_;
};

}  // namespace orvane
