#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/HostApplication.h>
#include <orvane/transport/S3MultipartUploader.h>

#include <cstdio>
#include <filesystem>

// Reaches every room of the library, so that a missing header or library shows.
int main() {
  const auto data = std::filesystem::current_path() / "consumer-data";
  if (!orvane::HostApplication::configure({.dataDirectory = data})) return 1;
  orvane::UploadStore::shared().upsert({"id", "media/a.jpg", orvane::UploadStatus::pending, 0, 1});
  const orvane::S3MultipartUploader uploader(orvane::S3Config{});
  const auto record = orvane::UploadStore::shared().record("id");
  if (!record || record->thumbnailFilename() != "thumbnails/a.jpg") return 1;
  std::puts("consumer works");
  return 0;
}
