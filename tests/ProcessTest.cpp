// The engine as a guest of its process: limits, signals.

#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/tagging/ImageTagger.h>
#include <orvane/transport/S3MultipartUploader.h>
#include <orvane/transport/S3Uploader.h>
#include <orvane/transport/TalvexAPIService.h>

#include "support/LogLines.h"
#include "support/OtherUser.h"
#include "support/Test.h"

namespace orvane {
namespace {

/// The process gets nothing more of the resource while `use` runs.
void without(__rlimit_resource resource, const std::function<void()>& use) {
  rlimit former{};
  getrlimit(resource, &former);
  const rlimit none{.rlim_cur = 0, .rlim_max = former.rlim_max};
  setrlimit(resource, &none);
  use();
  setrlimit(resource, &former);
}

template <class T>
void print(const Result<T>& result) {
  std::cout << (result ? 0 : result.error().code()) << ' ';
}

Result<void> uploadInParts(const S3Config& config, const fs::path& file) {
  S3MultipartUploader uploader(config);
  std::promise<Result<void>> outcome;
  uploader.upload(file, "key", "image/jpeg", {},
                  [&](const Result<void>& result) { outcome.set_value(result); });
  return outcome.get_future().get();
}

std::string lineOfTagging(const fs::path& image) {
  const testing::LogLines log;
  boost::asio::io_context context;
  auto tags = boost::asio::co_spawn(context, ImageTagger::shared().tagImage(image),
                                    boost::asio::use_future);
  context.run();
  return tags.get().empty() ? log.lines().at(0) : "tags";
}

void useEverything(const S3Config& config, const std::string& recordId) {
  const auto file = testDirectory() / "file";
  print(S3Uploader::initiateMultipartUpload("key", "text/plain", config));
  print(TalvexAPIService::shared().listObjects(config, ""));
  print(uploadInParts(config, file));
  print(testing::run(S3Uploader::uploadData({}, "key", "text/plain", config)));
  UploadStore::shared().upsert(
      {recordId, recordId, UploadStatus::pending, 0, 1, {}, {}, false, 0, {}, {}, 0});
  std::cout << UploadStore::shared().allRecords().size() << ' '
            << lineOfTagging(testDirectory() / "none") << std::endl;
}

const ChildMain kLimited("limited", [](const auto& arguments) {
  const auto config = configFor(arguments.at(0));
  without(arguments.at(1) == "threads" ? RLIMIT_NPROC : RLIMIT_NOFILE,
          [&] { useEverything(config, "during"); });
  useEverything(config, "after");
  return 0;
});

const ChildMain kStored("stored", [](const auto&) {
  std::cout << UploadStore::shared().allRecords().size();
  return 0;
});

/// Where nothing can be started or opened every call says so, and works again as soon as it can.
TEST(ResourceLimits, AreErrorsThatPass) {
  FaultServer server(
      [](const auto&) { return answer(200, "<UploadId>u</UploadId>", {{"ETag", "\"e\""}}); });
  const auto file = testDirectory() / "file";
  writeFile(file, "");
  fs::resize_file(file, S3MultipartUploader::chunkSize);
  std::optional<testing::OtherUser> user;  // The number of root's threads has no limit.
  if (testing::OtherUser::isPossible()) user.emplace();
  const std::string log = "[ImageTagger] Vision classify failed: ";
  const std::string image = (testDirectory() / "none").string();
  std::vector<std::pair<std::string, std::string>> cases = {
      {"threads", "11 11 11 11 1 " + log + "start a thread: Resource temporarily unavailable\n"}};
#ifndef __SANITIZE_ADDRESS__  // The sanitizer itself opens pipes to look at objects.
  cases.emplace_back("descriptors", "24 24 24 24 1 " + log + image + ": Too many open files\n");
#endif
  for (const auto& [limit, outcome] : cases) {
    auto child = ChildProcess::run("limited", {server.url(), limit});
    EXPECT_EQ(child.readAll(),
              outcome + "0 0 0 0 2 " + log + image + ": No such file or directory\n");
    EXPECT_EQ(child.wait(), 0) << limit;
    EXPECT_EQ(outputOfChild("stored"), "2") << limit;
    fs::remove_all(testDirectory() / "data");
  }
}

}  // namespace
}  // namespace orvane
