#pragma once

namespace orvane {

/// The engine's settings, kept in the user's `Preferences`.
///
/// Any thread may call these; each call blocks briefly on the disk. Nothing is cached: every read
/// asks the preferences, every write is stored when it returns, and other processes of the host see
/// it. A child that was forked without exec must not call these.
class AppSettings {
 public:
  AppSettings() = delete;

  /// Whether thumbnails are to be generated; false until it is set. The engine itself does not ask.
  [[nodiscard]] static bool isThumbnailGenerationEnabled();
  static void setThumbnailGenerationEnabled(bool enabled);
};

}  // namespace orvane
