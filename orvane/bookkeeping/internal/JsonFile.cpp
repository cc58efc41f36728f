#include <orvane/bookkeeping/internal/JsonFile.h>
#include <orvane/platform/Directories.h>
#include <orvane/platform/FileReader.h>
#include <orvane/platform/HostApplication.h>
#include <orvane/platform/PreservedFile.h>

#include <cerrno>
#include <span>
#include <system_error>

namespace orvane::internal {
namespace {

namespace fs = std::filesystem;

/// Whether nothing that must be kept is in the place of `file` any more.
bool preserve(const fs::path& file) {
  const auto kept = platform::preserveFile(file, ".undecodable");
  return kept || kept.error().code() == ENOENT;
}

}  // namespace

std::optional<simdjson::padded_string> JsonFile::read() {
  const auto path = location();
  if (!path) return std::nullopt;
  auto reader = platform::FileReader::open(*path);
  if (!reader) {
    mustPreserve_ = reader.error().code() != ENOENT;
    return std::nullopt;
  }
  simdjson::padded_string text(reader->sizeAtOpen());
  const auto length = reader->read(std::as_writable_bytes(std::span(text.data(), text.size())));
  if (length != text.size()) {
    mustPreserve_ = true;
    return std::nullopt;
  }
  return text;
}

void JsonFile::replace(const std::function<bool(platform::AtomicFile&)>& write) {
  const auto path = location();
  if (!path) return;
  auto file = platform::AtomicFile::create(*path);
  if (!file || !write(*file)) return;
  if (mustPreserve_ && !preserve(*path)) return;
  mustPreserve_ = false;
  static_cast<void>(file->commit());
}

void JsonFile::remove() {
  const auto path = location();
  if (!path) return;
  std::error_code error;
  if (fs::remove(*path, error)) mustPreserve_ = false;
}

std::optional<fs::path> JsonFile::location() const {
  const auto folder = HostApplication::applicationSupportDirectory();
  if (!folder) return std::nullopt;
  static_cast<void>(platform::createPrivateDirectories(*folder));
  return *folder / name_;
}

}  // namespace orvane::internal
