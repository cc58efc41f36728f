#include <orvane/bookkeeping/internal/JsonFile.h>
#include <orvane/platform/Directories.h>
#include <orvane/platform/FileReader.h>
#include <orvane/platform/HostApplication.h>

#include <cerrno>
#include <span>
#include <system_error>

namespace orvane::internal {
namespace {

namespace fs = std::filesystem;

/// The name under which to keep `file`: a free one, or one that leads to that very file because a
/// process ended between keeping and replacing it.
fs::path nameAside(const fs::path& file) {
  std::error_code ignored;
  for (int number = 1;; ++number) {
    auto name = file;
    name += number == 1 ? ".undecodable" : ".undecodable-" + std::to_string(number);
    const bool taken = fs::exists(fs::symlink_status(name, ignored));
    if (!taken || fs::equivalent(file, name, ignored)) return name;
  }
}

bool keepAside(const fs::path& file) {
  std::error_code error;
  if (!fs::is_regular_file(file, error)) return false;
  const auto name = nameAside(file);
  // A second name rather than a new one: should replacing fail, the file still stands in its place.
  fs::create_hard_link(file, name, error);
  if (!error || error == std::errc::file_exists) return true;
  fs::rename(file, name, error);
  return !error;
}

}  // namespace

std::optional<simdjson::padded_string> JsonFile::read() {
  const auto path = location();
  if (!path) return std::nullopt;
  auto reader = platform::FileReader::open(*path);
  if (!reader) {
    keepAside_ = reader.error().code() != ENOENT;
    return std::nullopt;
  }
  simdjson::padded_string text(reader->sizeAtOpen());
  const auto length = reader->read(std::as_writable_bytes(std::span(text.data(), text.size())));
  if (length != text.size()) {
    keepAside_ = true;
    return std::nullopt;
  }
  return text;
}

void JsonFile::replace(const std::function<bool(platform::AtomicFile&)>& write) {
  const auto path = location();
  if (!path) return;
  auto file = platform::AtomicFile::create(*path);
  if (!file || !write(*file)) return;
  if (keepAside_ && keepAside(*path)) keepAside_ = false;
  if (file->commit()) keepAside_ = false;
}

void JsonFile::remove() {
  const auto path = location();
  if (!path) return;
  std::error_code error;
  if (fs::remove(*path, error)) keepAside_ = false;
}

std::optional<fs::path> JsonFile::location() const {
  const auto folder = HostApplication::applicationSupportDirectory();
  if (!folder) return std::nullopt;
  static_cast<void>(platform::createPrivateDirectories(*folder));
  return *folder / name_;
}

}  // namespace orvane::internal
