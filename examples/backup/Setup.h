#pragma once

#include <orvane/transport/S3Config.h>

#include <filesystem>
#include <optional>
#include <string>

namespace orvane {
class TagDatabase;
}

namespace backup {

/// What the user says about this device.
struct Device {
  std::optional<std::filesystem::path> state;        ///< Otherwise the user's own data folder.
  std::optional<std::filesystem::path> model;        ///< Otherwise the built-in classifier.
  std::optional<std::filesystem::path> authorities;  ///< Beside those of the system.
  bool keyring = false;  ///< Otherwise a file holds the device's identity.
};

/// The object store that a JSON file describes; refuses one that cannot be talked to.
[[nodiscard]] orvane::S3Config readConfig(const std::filesystem::path& file);

/// Tells the engine who uses it, where it keeps its files and what serves it.
void prepare(const Device& device);

/// The tag database, open.
[[nodiscard]] orvane::TagDatabase& openTags();

/// Keeps every other process that would change the state out until this one ends, and refuses when
/// there is one at work.
void lockState();

/// This device's identifier; refuses when the secure store cannot keep it.
[[nodiscard]] std::string deviceIdentity();

/// Refuses what is no folder.
void requireFolder(const std::filesystem::path& folder);

// Records know neither their folder nor their bucket, so a state serves one of each. What holds is
// what was backed up here; until something was, anything may be.

/// Remembers what is to be backed up where, and refuses what is not the same as before.
void bindState(const std::filesystem::path& folder, const orvane::S3Config& config);
/// Whether the state is that of this folder, or of none yet.
[[nodiscard]] bool servesFolder(const std::filesystem::path& folder);
/// Refuses an object store other than the one that was backed up to.
void requireSameStore(const orvane::S3Config& config);
/// The folder that is backed up here.
[[nodiscard]] std::filesystem::path rememberedFolder();

}  // namespace backup
