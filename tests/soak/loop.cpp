// Works with the engine without a pause: uploads, downloads, listings, records, tags and their
// exchange. After each round it prints what it holds: MiB of physical memory, MiB allocated and not
// freed, descriptors. Fails when something never succeeds.
//
// usage: orvane_soak_loop SECONDS CONFIGURATION FOLDER

#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/host/SystemLog.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncService.h>
#include <orvane/transport/ObjectDownloader.h>
#include <orvane/transport/ResumableUploader.h>
#include <orvane/transport/TalvexAPIService.h>

#include "support/Run.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

namespace orvane::soak {
namespace {

namespace fs = std::filesystem;
using testing::run;
using Clock = std::chrono::steady_clock;

void printResources() {
  constexpr double kMiB = 1024.0 * 1024;
  std::ifstream pages("/proc/self/statm");
  double total = 0;
  double resident = 0;
  pages >> total >> resident;
  const auto memory = mallinfo2();
  const fs::directory_iterator open("/proc/self/fd");
  std::cout << resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / kMiB << ' '
            << static_cast<double>(memory.uordblks + memory.hblkhd) / kMiB << ' '
            << std::distance(begin(open), end(open)) << std::endl;
}

class Loop {
 public:
  Loop(S3Config config, fs::path folder) : config_(std::move(config)), folder_(std::move(folder)) {
    fs::create_directory(folder_);
    for (const int size : {1000, 9 << 20}) {
      std::ofstream(folder_ / std::to_string(size)) << std::string(static_cast<size_t>(size), 'x');
    }
  }

  void doEverything() {
    // The store takes hours to free what is replaced, so that large files come now and then only.
    for (const char* name : {"1000", rounds_++ % 10 == 0 ? "9437184" : "1000"}) {
      const auto file = folder_ / name;
      count("uploads", run(uploader_.upload(file, name, "image/jpeg")));
      fs::remove(folder_ / "copy");
      count("downloads", run(downloader_.download(name, folder_ / "copy")));
      UploadStore::shared().upsert({name, name, UploadStatus::completed, 1000, 1000});
    }
    count("listings", TalvexAPIService::shared().listObjects(config_, config_.prefix));
    count("tags", TagDatabase::shared().upsertTags("1000", {{"mare", 0.9}}, "loop"));
    count("publications", run(TagSyncService::shared().uploadTagsToS3(config_)));
    count("merges", run(TagSyncService::shared().downloadAllRemoteTags(config_)));
  }

  [[nodiscard]] bool everythingHasSucceeded() const {
    for (const auto& [what, times] : succeeded_) std::cerr << times << ' ' << what << ", ";
    return succeeded_.size() == 6;
  }

 private:
  void count(const std::string& what, const auto& result) {
    if (result) ++succeeded_[what];
  }

  const S3Config config_;
  const fs::path folder_;
  ResumableUploader uploader_{config_, {.firstRetryDelay = std::chrono::milliseconds(2)}};
  ObjectDownloader downloader_{config_, {.firstRetryDelay = std::chrono::milliseconds(2)}};
  std::map<std::string, int> succeeded_;
  int rounds_ = 0;
};

int work(std::chrono::seconds duration, const fs::path& configuration, const fs::path& folder) {
  std::ostringstream json;
  json << std::ifstream(configuration).rdbuf();
  auto config = S3Config::fromJson(json.str());
  if (!config || !HostApplication::configure({.dataDirectory = folder / "data"}) ||
      !TagDatabase::shared().initialize()) {
    return 2;
  }
  config->prefix += "loop/";
  SystemLog::setSink([](std::string_view) {});
  Loop loop(*config, folder);
  for (const auto end = Clock::now() + duration; Clock::now() < end;) {
    loop.doEverything();
    printResources();
  }
  return loop.everythingHasSucceeded() ? 0 : 1;
}

}  // namespace
}  // namespace orvane::soak

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  return orvane::soak::work(std::chrono::seconds(std::stoi(argv[1])), argv[2], argv[3]);
}
