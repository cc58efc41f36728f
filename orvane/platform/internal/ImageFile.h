#pragma once

#include <orvane/Error.h>
#include <orvane/platform/FileReader.h>
#include <orvane/platform/internal/VipsHandle.h>

#include <cstdint>
#include <optional>

namespace orvane::platform {

/// An image file as libvips reads it.
///
/// Not by its name, under which another file may lie at the second look, and not mapped into
/// memory, where a file that gets shorter would end the process. Each format is opened by its own
/// loader, called by its name: no other of libvips' many, the ones it does not trust included, ever
/// sees the file.
///
/// One thread at a time. Must outlive the images that it gives, whose pixels are decoded when they
/// are asked for, once and from the top.
class ImageFile {
 public:
  enum class Format { jpeg, png, webp, tiff, heif };

  /// libvips must have been started.
  explicit ImageFile(FileReader file);
  ImageFile(const ImageFile&) = delete;
  ImageFile& operator=(const ImageFile&) = delete;

  /// What the file's first bytes say, or nothing when none of the loaders knows them.
  [[nodiscard]] std::optional<Format> format() const;

  /// The image at the smallest size that its decoder offers and that is not below its size divided
  /// by `reduction` (1 or more). Null when the file is damaged.
  [[nodiscard]] VipsHandle<VipsImage> load(Format format, double reduction);

  /// The small copy that a HEIF file may hold, if it serves as well as `whole`; else null.
  [[nodiscard]] VipsHandle<VipsImage> loadEmbedded(const VipsImage& whole, double reduction);

  /// Why the file could not be read, if that was it.
  [[nodiscard]] const std::optional<Error>& readFailure() const { return input_.failure; }

 private:
  struct Input {
    FileReader file;
    std::uint64_t offset = 0;
    std::optional<Error> failure = {};
  };
  static gint64 read(VipsSourceCustom* source, void* buffer, gint64 length, gpointer input);
  static gint64 seek(VipsSourceCustom* source, gint64 offset, int whence, gpointer input);

  Input input_;
  VipsHandle<VipsSource> source_;
};

}  // namespace orvane::platform
