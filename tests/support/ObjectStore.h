#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::testing {

/// An object as the store lists it.
struct StoredObject {
  std::string key;
  std::uint64_t size = 0;
  std::string etag;         ///< With its quotes.
  std::string contentType;  ///< From `head` only.

  friend bool operator==(const StoredObject&, const StoredObject&) = default;
};

/// The real object store of this ctest run, seen through a client that shares no code with the
/// engine. For tests added with orvane_add_store_test; one store serves all of them at the same
/// time, so each keeps to keys that begin with `prefix()`.
///
/// Operations block, a few tenths of a second each, and throw when the store refuses.
class ObjectStore {
 public:
  /// Throws when ctest has started no store for this test.
  ObjectStore();

  /// "http://127.0.0.1:" and the port.
  [[nodiscard]] const std::string& endpoint() const { return at("S3_ENDPOINT"); }
  [[nodiscard]] const std::string& accessKey() const { return at("S3_ACCESS_KEY"); }
  [[nodiscard]] const std::string& secretKey() const { return at("S3_SECRET_KEY"); }
  [[nodiscard]] const std::string& region() const { return at("S3_REGION"); }
  [[nodiscard]] const std::string& bucket() const { return at("S3_BUCKET"); }
  /// A folder name with a final "/" that no other test uses; the test's children share it.
  [[nodiscard]] const std::string& prefix() const { return prefix_; }

  void put(const std::string& key, std::string_view content, const std::string& contentType) const;
  /// The object's bytes; nothing when there is none.
  [[nodiscard]] std::optional<std::string> get(const std::string& key) const;
  [[nodiscard]] std::optional<StoredObject> head(const std::string& key) const;
  void remove(const std::string& key) const;
  /// Every object whose key begins with `prefix`, in the order of their keys.
  [[nodiscard]] std::vector<StoredObject> list(const std::string& prefix) const;
  /// Whether there are multipart uploads begun and neither completed nor aborted.
  [[nodiscard]] bool hasUnfinishedUploads() const;

 private:
  [[nodiscard]] const std::string& at(const std::string& name) const { return settings_.at(name); }
  /// The client's output; nothing when it was to get or head what is not there.
  [[nodiscard]] std::optional<std::string> run(std::vector<std::string> command) const;

  std::string environmentFile_;
  std::map<std::string, std::string> settings_;
  std::string prefix_;
};

}  // namespace orvane::testing
