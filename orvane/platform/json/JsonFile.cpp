#include <orvane/platform/json/JsonFile.h>

#include <orvane/platform/files/FileReader.h>
#include <orvane/platform/files/FolderOperations.h>
#include <orvane/platform/files/PreservedFile.h>

#include <cerrno>
#include <span>
#include <system_error>

namespace orvane::platform {
namespace {

namespace fs = std::filesystem;

/// Whether nothing that must be kept is in the place of `file` any more.
bool preserve(const fs::path& file) {
  const auto kept = preserveFile(file, ".undecodable");
  return kept || kept.error().code() == ENOENT;
}

}  // namespace

std::optional<simdjson::padded_string> JsonFile::read() {
  if (!prepareFolder()) return std::nullopt;
  auto reader = FileReader::open(*path_);
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

void JsonFile::replace(const std::function<bool(AtomicFile&)>& write) {
  if (!prepareFolder()) return;
  auto file = AtomicFile::create(*path_);
  if (!file || !write(*file)) return;
  if (mustPreserve_ && !preserve(*path_)) return;
  mustPreserve_ = false;
  static_cast<void>(file->commit());
}

void JsonFile::remove() {
  if (!prepareFolder()) return;
  std::error_code error;
  if (fs::remove(*path_, error)) mustPreserve_ = false;
}

bool JsonFile::prepareFolder() const {
  if (!path_) return false;
  static_cast<void>(createPrivateFolders(path_->parent_path()));
  return true;
}

}  // namespace orvane::platform
