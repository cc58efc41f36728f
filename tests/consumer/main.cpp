#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/vision/SceneClassifier.h>
#include <orvane/transport/S3MultipartUploader.h>

#include <cstdio>
#include <filesystem>

// Reaches every room of the library, so that a missing header, library or program shows.
int main(int, char** arguments) {
  orvane::HostOptions options;
  options.dataDirectory = std::filesystem::current_path() / "consumer-data";
#ifdef CONSUMER_HELPER_FOLDER
  options.helperFolder = CONSUMER_HELPER_FOLDER;
#endif
  if (!orvane::HostApplication::configure(options)) return 1;
  const auto scene = orvane::SceneClassifier().classify(arguments[1]);
  if (!scene) {
    std::puts(scene.error().description().c_str());
    return 1;
  }
  orvane::UploadStore::shared().upsert({"id", "media/a.jpg", orvane::UploadStatus::pending, 0, 1});
  const orvane::S3MultipartUploader uploader(orvane::S3Config{});
  const auto record = orvane::UploadStore::shared().record("id");
  if (!record || record->thumbnailFilename() != "thumbnails/a.jpg") return 1;
  std::puts("consumer works");
  return 0;
}
