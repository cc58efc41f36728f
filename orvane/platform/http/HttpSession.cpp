#include <orvane/platform/http/HttpSession.h>

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/BackgroundQueue.h>
#include <orvane/platform/concurrency/Suspension.h>
#include <orvane/platform/concurrency/WorkQueue.h>
#include <orvane/platform/http/internal/ConnectionCache.h>
#include <orvane/platform/http/internal/Transfer.h>
#include <orvane/platform/http/internal/TransferLoop.h>

#include <boost/asio/cancellation_type.hpp>

#include <cerrno>
#include <future>
#include <mutex>
#include <optional>
#include <utility>

namespace orvane::platform {
namespace {

namespace asio = boost::asio;

/// Runs one transfer's callbacks on the session's queue. One callback at a time is under way, so
/// `completion` comes last even where the queue runs several side by side; progress that a busy
/// queue has not taken yet is replaced by the newer one.
class CallbackDispatcher : public std::enable_shared_from_this<CallbackDispatcher> {
 public:
  CallbackDispatcher(WorkQueue queue, HttpSession::Progress progress,
                     HttpSession::Completion completion)
      : queue_(std::move(queue)),
        progress_(std::move(progress)),
        completion_(std::move(completion)) {}

  void sent(std::int64_t sent, std::int64_t total) {
    const std::lock_guard lock(mutex_);
    newest_ = Progress{.sent = sent, .total = total};
    schedule();
  }

  void finished(Result<HttpResponse> result) {
    const std::lock_guard lock(mutex_);
    result_ = std::move(result);
    schedule();
  }

 private:
  struct Progress {
    std::int64_t sent;
    std::int64_t total;
  };

  void schedule() {
    if (std::exchange(scheduled_, true)) return;
    queue_.async([self = shared_from_this()] { self->run(); });
  }

  void run() {
    std::unique_lock lock(mutex_);
    while (newest_ || result_) {
      const auto newest = std::exchange(newest_, std::nullopt);
      auto result = std::exchange(result_, std::nullopt);
      lock.unlock();
      if (newest && progress_) progress_(newest->sent, newest->total);
      if (result) {
        progress_ = nullptr;
        std::exchange(completion_, nullptr)(std::move(*result));
      }
      lock.lock();
    }
    scheduled_ = false;
  }

  std::mutex mutex_;
  std::optional<Progress> newest_;
  std::optional<Result<HttpResponse>> result_;
  bool scheduled_ = false;

  WorkQueue queue_;
  HttpSession::Progress progress_;
  HttpSession::Completion completion_;
};

Async<HttpResponse> sendOver(std::shared_ptr<ConnectionCache> connections, HttpRequest request,
                             SharedBytes body) {
  return suspended<Result<HttpResponse>>(
      [connections = std::move(connections), request = std::move(request), body = std::move(body)](
          auto resume, auto cancellation) mutable {
        auto transfer =
            std::make_shared<Transfer>(std::move(connections), std::move(request), std::move(body),
                                       Transfer::Sent{}, std::move(resume));
        if (cancellation.is_connected()) {
          cancellation.assign([weak = std::weak_ptr(transfer)](asio::cancellation_type /*type*/) {
            if (auto running = weak.lock()) TransferLoop::shared().cancel(*running);
          });
        }
        TransferLoop::shared().start(std::move(transfer));
      });
}

}  // namespace

struct HttpSession::State {
  explicit State(std::size_t maxConcurrentCallbacks) : callbacks(maxConcurrentCallbacks) {}

  WorkQueue callbacks;
  std::shared_ptr<ConnectionCache> connections = std::make_shared<ConnectionCache>();
};

HttpSession::HttpSession(std::size_t maxConcurrentCallbacks)
    : state_(std::make_shared<State>(maxConcurrentCallbacks)) {}

HttpSession& HttpSession::shared() {
  static auto& instance = *new HttpSession(1);
  return instance;
}

void HttpSession::start(HttpRequest request, SharedBytes body, Progress progress,
                        Completion completion) {
  if (!BackgroundQueue::hasThread()) {
    return completion(std::unexpected(posixError(EAGAIN, "start a thread")));
  }
  const bool wantsProgress = static_cast<bool>(progress);
  auto callbacks = std::make_shared<CallbackDispatcher>(state_->callbacks, std::move(progress),
                                                        std::move(completion));
  Transfer::Sent sent;
  if (wantsProgress) {
    sent = [callbacks](std::int64_t count, std::int64_t total) { callbacks->sent(count, total); };
  }
  TransferLoop::shared().start(std::make_shared<Transfer>(
      state_->connections, std::move(request), std::move(body), std::move(sent),
      [callbacks](Result<HttpResponse> result) { callbacks->finished(std::move(result)); }));
}

Result<HttpResponse> HttpSession::sendAndWait(HttpRequest request, SharedBytes body) {
  std::promise<Result<HttpResponse>> promise;
  auto response = promise.get_future();
  auto transfer = std::make_shared<Transfer>(
      state_->connections, std::move(request), std::move(body), Transfer::Sent{},
      [promise = std::move(promise)](Result<HttpResponse> result) mutable {
        promise.set_value(std::move(result));
      });
  transfer->reportAtExit();
  TransferLoop::shared().start(std::move(transfer));
  return response.get();
}

Async<HttpResponse> HttpSession::send(HttpRequest request, SharedBytes body) {
  return sendOver(state_->connections, std::move(request), std::move(body));
}

}  // namespace orvane::platform
