#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/vision/SceneClassifier.h>
#include <orvane/tagging/ImageTagger.h>
#include <orvane/transport/S3MultipartUploader.h>
#include <orvane/transport/S3Uploader.h>

#include "support/Test.h"

#include <semaphore>

namespace orvane {
namespace {

namespace asio = boost::asio;
using Arguments = std::vector<std::string>;

constexpr unsigned kSecondsToLive = 30;
constexpr int kCalledTooLate = 99;
constexpr int kUploads = 8;

template <class T>
std::int64_t codeOf(const Result<T>& result) {
  return result ? 0 : result.error().code();
}

UploadRecord recordOf(const std::string& id) {
  return {id, id, UploadStatus::pending, 0, 1, {}, {}, false, 0, {}, {}, 0};
}

/// Uploads a file again and again, as callbacks do that know nothing of the exit.
struct Uploads {
  S3MultipartUploader uploader;
  std::string file;
  std::counting_semaphore<> completed{0};
  std::atomic<bool> exitsInCallback = false;
  bool isAlive = true;

  Uploads(const std::string& url, std::string path)
      : uploader(configFor(url)), file(std::move(path)) {}
  ~Uploads() { isAlive = false; }
  Uploads(const Uploads&) = delete;
  Uploads& operator=(const Uploads&) = delete;

  void keepOn() {
    uploader.upload(file, "key", "image/jpeg", {}, [this](const Result<void>&) {
      if (!isAlive) _exit(kCalledTooLate);
      if (exitsInCallback.exchange(false)) std::exit(0);
      completed.release();
      keepOn();
    });
  }

  void run() {
    for (int i = 0; i < kUploads; ++i) keepOn();
    for (int i = 0; i < 2 * kUploads; ++i) completed.acquire();
  }
};

/// Threads of the host that are at work in the engine until it gives an error; destroyed after
/// everything of the engine.
struct HostThreads {
  std::int64_t waited = 0;
  std::int64_t classified = 0;
  S3Config config;
  std::vector<std::thread> threads;

  ~HostThreads() {
    for (auto& thread : threads) thread.join();
    std::cout << waited << ' ' << classified << ' ' << codeOfRequest() << std::endl;
    UploadStore::shared().upsert(recordOf("last"));
  }
  [[nodiscard]] std::int64_t codeOfRequest() const {
    return codeOf(S3Uploader::initiateMultipartUpload("stall", "text/plain", config));
  }
  void run(const std::string& image) {
    threads.emplace_back([this] { waited = codeOfRequest(); });
    threads.emplace_back([this, image] {
      while (classified == 0) classified = codeOf(SceneClassifier().classify(image));
    });
  }
};

std::string image;  // NOLINT(cert-err58-cpp): for an exit handler, which takes no arguments

/// Ends with uploads, blocking calls, classifications and changes of a store under way.
const ChildMain kExitWhileBusy("exitWhileBusy", [](const Arguments& arguments) {
  alarm(kSecondsToLive);
  static HostThreads hostThreads;
  image = arguments.at(1);
  const auto& how = arguments.at(2);
  static std::optional<Uploads> early;
  if (how == "thread") early.emplace(arguments.at(0), image);
  static std::optional<Uploads> late;
  if (how != "thread") late.emplace(arguments.at(0), image);
  auto& uploads = early ? *early : *late;
  static asio::io_context context;
  hostThreads.config = configFor(arguments.at(0));
  hostThreads.run(image);
  static_cast<void>(SceneClassifier().classify(image));  // All libraries are at work from here on.
  uploads.run();
  for (int i = 0; i < 20; ++i) {
    asio::co_spawn(context, ImageTagger::shared().tagImage(image),
                   [](const std::exception_ptr&, const std::vector<TagWithConfidence>&) {});
    UploadStore::shared().upsert(recordOf(std::to_string(i)));
  }
  context.run_one();
  std::atexit([] { std::cout << codeOf(SceneClassifier().classify(image)) << ' '; });
  if (how == "thread") std::thread([] { std::exit(0); }).join();
  uploads.exitsInCallback = how == "callback";
  while (how == "callback") ::pause();
  return 0;
});

const ChildMain kRecords("records", [](const Arguments&) {
  std::cout << UploadStore::shared().allRecords().size();
  return 0;
});

TEST(ProcessExit, EndsBlockingCallsAndLeavesCallbacksAlone) {
  FaultServer server([](const RecordedRequest& request) {
    return request.target().contains("stall") ? testing::stallAfter(0) : answer(200);
  });
  const auto file = testData("images/plain.jpg").string();
  // What an exit handler, a thread that waits, one that classifies and a static object get. The
  // handler comes before the engine's own only where neither `main` nor a callback calls `exit`.
  const std::pair<std::string, std::string> cases[] = {{"return", "125 -999 125 -999\n"},
                                                       {"callback", "125 -999 125 -999\n"},
                                                       {"thread", "0 -999 125 -999\n"}};
  for (const auto& [how, outcome] : cases) {
    for (int i = 0; i < 10; ++i) {
      auto child = ChildProcess::run("exitWhileBusy", {server.url(), file, how});
      EXPECT_EQ(child.readAll(), outcome) << how;
      EXPECT_EQ(child.wait(), 0) << how;
    }
    EXPECT_EQ(outputOfChild("records"), "21") << how;
    fs::remove_all(testDirectory() / "data");
  }
}

/// Forks while other threads are at work all over the engine, and counts the children that hang.
const ChildMain kForkWhileBusy("forkWhileBusy", [](const Arguments& arguments) -> int {
  static Uploads uploads(arguments.at(0), arguments.at(1));
  uploads.run();
  std::thread([] {
    while (UploadStore::shared().allRecords().size() < 2)
      UploadStore::shared().upsert(recordOf("a"));
  }).detach();
  int failures = 0;
  for (int i = 0; i < 200; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(kSecondsToLive / 10);
      std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    failures += status == 0 ? 0 : 1;
  }
  std::cout << failures << std::endl;
  _exit(0);
});

TEST(ProcessExit, AForkedChildMayExit) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer's own locks do not survive a fork beside busy threads";
#endif
  FaultServer server;
  const auto file = testDirectory() / "file";
  writeFile(file, "x");
  EXPECT_EQ(outputOfChild("forkWhileBusy", {server.url(), file.string()}), "0\n");
}

}  // namespace
}  // namespace orvane
