// Uploads a file and goes on where an earlier process was interrupted: kill it, and run it again.
//
// usage: orvane-resume CONFIG FILE STATE     STATE is a folder for what is kept between runs
#include <orvane/bookkeeping/MultipartUploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/transport/ResumableUploader.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>

namespace {

using orvane::MultipartUploadStore;
using orvane::UploadCheckpoint;
namespace fs = std::filesystem;

constexpr auto kAsset = "file";  ///< A host has a name for each of its files.
constexpr auto kKey = "resume/file";

std::optional<UploadCheckpoint> savedCheckpoint(const fs::path& file) {
  const auto state = MultipartUploadStore::shared().state(kAsset);
  if (!state) return std::nullopt;
  // The file is taken for the same as long as nothing says otherwise; its parts are compared.
  const auto modified = std::chrono::file_clock::to_sys(fs::last_write_time(file));
  UploadCheckpoint checkpoint{state->uploadId(), state->fileSize(), modified, {}};
  for (const auto& [number, eTag] : state->completedParts) {
    checkpoint.parts.emplace(std::stoll(number), eTag);
  }
  return checkpoint;
}

void save(const UploadCheckpoint& reached) {
  const auto partSize = orvane::ResumableUploader::partSizeFor(reached.fileSize);
  std::map<std::string, std::string> parts;
  for (const auto& [number, eTag] : reached.parts) parts.emplace(std::to_string(number), eTag);
  MultipartUploadStore::shared().save({kAsset, reached.uploadId, kKey, "application/octet-stream",
                                       (reached.fileSize + partSize - 1) / partSize,
                                       reached.fileSize, std::move(parts)});
  std::cout << reached.parts.size() << " parts sent\n" << std::flush;
}

}  // namespace

int main(int argc, char** argv) {
  std::ifstream text(argc == 4 ? argv[1] : "");
  const auto config = orvane::S3Config::fromJson(std::string(std::istreambuf_iterator(text), {}));
  if (!config || !orvane::HostApplication::configure({.dataDirectory = fs::absolute(argv[3])})) {
    std::cerr << "usage: orvane-resume CONFIG FILE STATE\n";
    return 2;
  }
  orvane::ResumableUploader uploader(*config);
  boost::asio::io_context context;
  auto outcome =
      boost::asio::co_spawn(context,
                            uploader.upload(argv[2], kKey, "application/octet-stream",
                                            savedCheckpoint(argv[2]), {.checkpoint = save}),
                            boost::asio::use_future);
  context.run();
  const auto eTag = outcome.get();
  std::cout << (eTag ? "ETag " + *eTag : eTag.error().description()) << '\n';
  if (eTag) MultipartUploadStore::shared().remove(kAsset);
  return eTag ? 0 : 1;
}
