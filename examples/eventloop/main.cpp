// A host with an event loop of its own, as a program with windows has one: the engine's callbacks
// come on the engine's threads, and post to the loop what is to be done on the host's thread.
//
// usage: orvane-eventloop CONFIG FILE
#include <orvane/transport/S3MultipartUploader.h>

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>

namespace {

/// Stands for the loop that the host's toolkit brings, and for its way to post to it.
class EventLoop {
 public:
  void post(std::function<void()> task) {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    changed_.notify_one();
  }

  int run() {
    while (!status_) takeTask()();
    return *status_;
  }

  /// Called by a task.
  void quit(int status) { status_ = status; }

 private:
  std::function<void()> takeTask() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !tasks_.empty(); });
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> tasks_;
  std::optional<int> status_;
};

}  // namespace

int main(int argc, char** argv) {
  std::ifstream file(argc == 3 ? argv[1] : "");
  const auto config = orvane::S3Config::fromJson(std::string(std::istreambuf_iterator(file), {}));
  if (!config) {
    std::cerr << "usage: orvane-eventloop CONFIG FILE\n";
    return 2;
  }
  EventLoop loop;
  orvane::S3MultipartUploader uploader(*config);
  const auto progress = [&loop](std::int64_t sent, std::int64_t total) {
    loop.post([=] { std::cout << sent << " of " << total << " bytes\n"; });
  };
  const auto completion = [&loop](const orvane::Result<void>& result) {
    loop.post([&loop, result] {
      std::cout << (result ? "uploaded" : result.error().description()) << '\n';
      loop.quit(result ? EXIT_SUCCESS : EXIT_FAILURE);
    });
  };
  uploader.upload(argv[2], "eventloop/file", "application/octet-stream", progress, completion);
  return loop.run();  // Ends after the completion, so that nothing is called that is gone.
}
