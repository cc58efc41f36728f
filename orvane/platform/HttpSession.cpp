#include <orvane/platform/HttpSession.h>
#include <orvane/platform/OperationQueue.h>
#include <orvane/platform/internal/ConnectionCache.h>
#include <orvane/platform/internal/Transfer.h>
#include <orvane/platform/internal/TransferLoop.h>

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/execution/outstanding_work.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/prefer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <future>
#include <mutex>
#include <optional>
#include <utility>

namespace orvane::platform {
namespace {

namespace asio = boost::asio;

/// Carries one transfer's reports to the session's queue. Only one report is
/// ever under way, so completion comes last even where callbacks may run side by side; progress
/// that a busy queue has not taken yet is replaced by the newer figure.
class Reports : public std::enable_shared_from_this<Reports> {
 public:
  Reports(OperationQueue queue, HttpSession::Progress progress, HttpSession::Completion completion)
      : queue_(std::move(queue)),
        progress_(std::move(progress)),
        completion_(std::move(completion)) {}

  void sent(std::int64_t sent, std::int64_t total) {
    const std::lock_guard lock(mutex_);
    newest_ = Figures{.sent = sent, .total = total};
    schedule();
  }

  void finished(Result<HttpResponse> result) {
    const std::lock_guard lock(mutex_);
    result_ = std::move(result);
    schedule();
  }

 private:
  struct Figures {
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
      const auto figures = std::exchange(newest_, std::nullopt);
      auto result = std::exchange(result_, std::nullopt);
      lock.unlock();
      if (figures && progress_) progress_(figures->sent, figures->total);
      if (result) {
        progress_ = nullptr;
        std::exchange(completion_, nullptr)(std::move(*result));
      }
      lock.lock();
    }
    scheduled_ = false;
  }

  std::mutex mutex_;
  std::optional<Figures> newest_;
  std::optional<Result<HttpResponse>> result_;
  bool scheduled_ = false;

  OperationQueue queue_;
  HttpSession::Progress progress_;
  HttpSession::Completion completion_;
};

/// A free coroutine, so that the session object may go while it is suspended.
Async<HttpResponse> sendOver(std::shared_ptr<ConnectionCache> connections, HttpRequest request,
                             SharedBytes body) {
  auto initiate = [&](auto handler) {
    auto slot = asio::get_associated_cancellation_slot(handler);
    auto executor = asio::get_associated_executor(handler);
    auto transfer = std::make_shared<Transfer>(
        std::move(connections), std::move(request), std::move(body), Transfer::Sent{},
        [handler = std::move(handler),
         executor = asio::prefer(executor, asio::execution::outstanding_work_t::tracked)](
            Result<HttpResponse> result) mutable {
          // The tracked executor stays here until post has returned: the host may destroy its
          // context as soon as that has nothing left to do.
          asio::post(executor,
                     [handler = std::move(handler), result = std::move(result)]() mutable {
                       std::move(handler)(std::move(result));
                     });
        });
    transfer->forgetAtExit();  // By then the host's executor may be gone.
    if (slot.is_connected()) {
      slot.assign([weak = std::weak_ptr(transfer)](asio::cancellation_type /*type*/) {
        if (auto running = weak.lock()) TransferLoop::shared().cancel(*running);
      });
    }
    TransferLoop::shared().start(std::move(transfer));
  };
  co_return co_await asio::async_initiate<const asio::use_awaitable_t<>,
                                          void(Result<HttpResponse>)>(initiate,
                                                                      asio::use_awaitable);
}

}  // namespace

struct HttpSession::State {
  explicit State(std::size_t maxConcurrentCallbacks) : callbacks(maxConcurrentCallbacks) {}

  OperationQueue callbacks;
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
  const bool wantsProgress = static_cast<bool>(progress);
  auto reports =
      std::make_shared<Reports>(state_->callbacks, std::move(progress), std::move(completion));
  Transfer::Sent sent;
  if (wantsProgress) {
    sent = [reports](std::int64_t count, std::int64_t total) { reports->sent(count, total); };
  }
  TransferLoop::shared().start(std::make_shared<Transfer>(
      state_->connections, std::move(request), std::move(body), std::move(sent),
      [reports](Result<HttpResponse> result) { reports->finished(std::move(result)); }));
}

Result<HttpResponse> HttpSession::sendAndWait(HttpRequest request, SharedBytes body) {
  std::promise<Result<HttpResponse>> promise;
  auto answer = promise.get_future();
  TransferLoop::shared().start(std::make_shared<Transfer>(
      state_->connections, std::move(request), std::move(body), Transfer::Sent{},
      [promise = std::move(promise)](Result<HttpResponse> result) mutable {
        promise.set_value(std::move(result));
      }));
  return answer.get();
}

Async<HttpResponse> HttpSession::send(HttpRequest request, SharedBytes body) {
  return sendOver(state_->connections, std::move(request), std::move(body));
}

}  // namespace orvane::platform
