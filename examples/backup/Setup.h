#pragma once

#include <orvane/transport/S3Config.h>

#include <filesystem>
#include <optional>

namespace orvane {
class TagDatabase;
}

namespace backup {

/// What the user says about this device.
struct Device {
  std::optional<std::filesystem::path> state;  ///< Otherwise the user's own data folder.
  std::optional<std::filesystem::path> model;  ///< Otherwise the built-in classifier.
  bool keyring = false;                        ///< Otherwise a file holds the device's identity.
};

/// The object store that a JSON file describes.
[[nodiscard]] orvane::S3Config readConfig(const std::filesystem::path& file);

/// Tells the engine who uses it, where it keeps its files and what serves it.
void prepare(const Device& device);

/// The tag database, open.
[[nodiscard]] orvane::TagDatabase& openTags();

/// The folder that is backed up here, for commands that come later.
void rememberFolder(const std::filesystem::path& folder);
[[nodiscard]] std::filesystem::path rememberedFolder();

}  // namespace backup
