#include <orvane/transport/ObjectDownloader.h>

#include <orvane/transport/internal/ObjectDownload.h>
#include <orvane/transport/internal/OnStrand.h>

#include <utility>

namespace orvane {

ObjectDownloader::ObjectDownloader(S3Config config, Options options)
    : state_(std::make_shared<transport::ObjectDownloaderState>(std::move(config), options)) {}

bool ObjectDownloader::isUnfinished(const std::filesystem::path& file) {
  return transport::PartialFile::isNameOfOne(file.filename().native());
}

Async<DownloadedObject> ObjectDownloader::download(std::string key, std::filesystem::path target,
                                                   ExistingFile existing, Events events) {
  transport::ObjectDownloadJob job{.key = std::move(key),
                                   .target = std::move(target),
                                   .existing = existing,
                                   .events = std::move(events)};
  return transport::runOnStrand(
      std::make_shared<transport::ObjectDownload>(state_, std::move(job)));
}

}  // namespace orvane
