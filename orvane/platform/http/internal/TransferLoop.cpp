#include <orvane/platform/http/internal/TransferLoop.h>

#include <orvane/platform/base/PosixError.h>
#include <orvane/platform/concurrency/BlockedSignals.h>
#include <orvane/platform/concurrency/ProcessExit.h>
#include <orvane/platform/http/UrlError.h>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace orvane::platform {
namespace {

constexpr std::size_t kIdleHandles = 8;

/// Edge-triggered: each alarm or signal is told once and need not be read.
void addTo(const FileDescriptor& epoll, const FileDescriptor& watched) {
  epoll_event event{.events = EPOLLIN | EPOLLET, .data = {.fd = watched.get()}};
  epoll_ctl(epoll.get(), EPOLL_CTL_ADD, watched.get(), &event);
}

int readinessOf(std::uint32_t events) {
  int readiness = 0;
  if ((events & EPOLLIN) != 0) readiness |= CURL_CSELECT_IN;
  if ((events & EPOLLOUT) != 0) readiness |= CURL_CSELECT_OUT;
  if ((events & (EPOLLERR | EPOLLHUP)) != 0) readiness |= CURL_CSELECT_ERR;
  return readiness;
}

}  // namespace

TransferLoop& TransferLoop::shared() {
  // Never destroyed: sessions that outlive it may still hand connections back.
  static auto& instance = *new TransferLoop;
  return instance;
}

TransferLoop::TransferLoop() {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  stopped_ = !ProcessExit::add(ProcessExit::Stage::transfers, [this] { stop(); });
}

Result<void> TransferLoop::open() {
  if (thread_.joinable()) return {};
  FileDescriptor epoll(epoll_create1(EPOLL_CLOEXEC));
  FileDescriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  FileDescriptor stopEvent(eventfd(0, EFD_CLOEXEC));
  if (!epoll || !timer || !stopEvent) return std::unexpected(lastPosixError("open a descriptor"));
  if (multi_ == nullptr) multi_ = curl_multi_init();
  if (multi_ == nullptr) return std::unexpected(posixError(ENOMEM, "set up the HTTP client"));
  curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &TransferLoop::onSocket);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &TransferLoop::onTimer);
  curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
  addTo(epoll, timer);
  addTo(epoll, stopEvent);
  epoll_ = std::move(epoll);
  timer_ = std::move(timer);
  stopEvent_ = std::move(stopEvent);
  try {
    const BlockedSignals blocked;
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error& error) {
    return std::unexpected(posixError(error.code().value(), "start a thread"));
  }
  return {};
}

void TransferLoop::start(std::shared_ptr<Transfer> transfer) {
  // Name lookups run on threads that the client library starts here.
  const BlockedSignals blocked;
  act([&] { begin(std::move(transfer)); });
}

void TransferLoop::cancel(const Transfer& transfer) {
  act([&] {
    if (!stopped_) end(transfer, std::unexpected(urlError(UrlErrorCode::cancelled)));
  });
}

void TransferLoop::setRates(std::optional<std::int64_t> sending,
                            std::optional<std::int64_t> receiving) {
  act([&] {
    const auto now = Clock::now();
    gates_.sending.setRate(sending, now);
    gates_.receiving.setRate(receiving, now);
  });
}

void TransferLoop::release(CURLSH* connections) {
  if (ProcessExit::isForkedChild()) return;
  act([&] {
    if (!stopped_) curl_share_cleanup(connections);
  });
}

template <class Action>
void TransferLoop::act(Action&& action) {
  std::vector<Ended> ended;
  {
    const std::lock_guard lock(mutex_);
    action();
    if (!stopped_ && thread_.joinable()) {
      endCompleted();
      armTimer();
    }
    ended.swap(ended_);
  }
  for (auto& [transfer, result] : ended) transfer->report(std::move(result));
}

void TransferLoop::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    if (!thread_.joinable()) return;
  }
  eventfd_write(stopEvent_.get(), 1);
  thread_.join();
  // The client library is left alone: what it stands on may be torn down already.
  act([&] {
    for (const auto& transfer : active_) {
      if (!transfer->reportsAtExit()) continue;
      ended_.push_back({transfer, std::unexpected(urlError(UrlErrorCode::cancelled))});
    }
  });
}

void TransferLoop::run() {
  std::array<epoll_event, 64> events{};
  for (;;) {
    const int count = epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), -1);
    act([&] {
      for (int i = 0; i < count && !stopped_; ++i) {
        const auto& event = events.at(static_cast<std::size_t>(i));
        if (event.data.fd == timer_.get()) {
          timeHasCome();
        } else {
          socketReady(event.data.fd, readinessOf(event.events));
        }
      }
    });
    const std::lock_guard lock(mutex_);
    if (stopped_) return;
  }
}

void TransferLoop::begin(std::shared_ptr<Transfer> transfer) {
  const auto refuse = [&](Error error) {
    ended_.push_back({std::move(transfer), std::unexpected(std::move(error))});
  };
  if (stopped_) return refuse(urlError(UrlErrorCode::cancelled, "the process is exiting"));
  if (auto opened = open(); !opened) return refuse(std::move(opened).error());
  if (auto refusal = transfer->refusal()) return refuse(std::move(*refusal));
  CURL* easy = takeHandle();
  if (easy == nullptr) return refuse(urlError(UrlErrorCode::unknown, "out of memory"));
  transfer->attach(easy, gates_);
  if (curl_multi_add_handle(multi_, easy) != CURLM_OK) {
    transfer->detach();
    curl_easy_cleanup(easy);
    return refuse(urlError(UrlErrorCode::unknown, "no room for the transfer"));
  }
  nextStallCheck_ = std::min(nextStallCheck_, Clock::now() + transfer->checkInterval());
  active_.push_back(std::move(transfer));
  // A new handle waits for a time-out of nothing; this is it.
  socketReady(CURL_SOCKET_TIMEOUT, 0);
}

void TransferLoop::end(const Transfer& transfer, Result<HttpResponse> result) {
  const auto found = std::ranges::find(active_, &transfer, &std::shared_ptr<Transfer>::get);
  if (found == active_.end()) return;
  (*found)->detach();
  giveHandleBack(transfer.easy());
  ended_.push_back({std::move(*found), std::move(result)});
  active_.erase(found);
}

CURL* TransferLoop::takeHandle() {
  if (idleHandles_.empty()) return curl_easy_init();
  CURL* easy = idleHandles_.back();
  idleHandles_.pop_back();
  return easy;
}

void TransferLoop::giveHandleBack(CURL* easy) {
  curl_multi_remove_handle(multi_, easy);
  if (idleHandles_.size() < kIdleHandles) {
    curl_easy_reset(easy);
    curl_easy_setopt(easy, CURLOPT_SHARE, nullptr);  // A reset leaves the share in place.
    idleHandles_.push_back(easy);
  } else {
    curl_easy_cleanup(easy);
  }
}

void TransferLoop::socketReady(int socket, int readiness) {
  int running = 0;
  curl_multi_socket_action(multi_, socket, readiness, &running);
}

void TransferLoop::timeHasCome() {
  armed_ = Clock::time_point::max();
  const auto now = Clock::now();
  if (now >= libraryDeadline_) {
    socketReady(CURL_SOCKET_TIMEOUT, 0);
    // The library speaks up only when its next deadline has changed; if this alarm came a moment
    // too early for it, it has not.
    long milliseconds = -1;
    curl_multi_timeout(multi_, &milliseconds);
    onTimer(multi_, milliseconds, this);
  }
  gates_.sending.resumeNext(now);
  gates_.receiving.resumeNext(now);
  if (now >= nextStallCheck_) endStalled(now);
}

void TransferLoop::endCompleted() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    Transfer* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    const CURLcode code = message->data.result;
    if (transfer->maySendAgain(code)) {
      curl_multi_remove_handle(multi_, transfer->easy());
      transfer->prepareSecondSend();
      if (curl_multi_add_handle(multi_, transfer->easy()) == CURLM_OK) continue;
    }
    end(*transfer, transfer->result(code));
  }
}

void TransferLoop::endStalled(Clock::time_point now) {
  nextStallCheck_ = Clock::time_point::max();
  bool isConnecting = false;
  std::vector<Transfer*> stalled;
  for (const auto& transfer : active_) {
    if (transfer->hasStalled(now)) {
      stalled.push_back(transfer.get());
    } else {
      nextStallCheck_ = std::min(nextStallCheck_, now + transfer->checkInterval());
      isConnecting |= transfer->isConnecting();
    }
  }
  for (const auto* transfer : stalled) {
    end(*transfer, std::unexpected(urlError(UrlErrorCode::timedOut)));
  }
  if (isConnecting) driveAll();
}

/// For handles that connect: between the addresses of a name the library has neither a socket nor a
/// deadline to be woken by. `curl_multi_perform` would not tell of the sockets it opens, so that
/// nothing would watch them; the deprecated call does, and no other drives a handle without either.
void TransferLoop::driveAll() {
  int running = 0;
  CURL_IGNORE_DEPRECATION(curl_multi_socket_all(multi_, &running);)
}

/// Wakes the I/O thread in time; an alarm that comes too early finds nothing to do, which is
/// cheaper than setting it anew with every transfer.
void TransferLoop::armTimer() {
  const auto wanted = std::min(
      {libraryDeadline_, nextStallCheck_, gates_.sending.nextTurn(), gates_.receiving.nextTurn()});
  if (wanted >= armed_) return;
  armed_ = wanted;
  // A value of nothing would disarm the timer.
  const auto delay = std::max<std::chrono::nanoseconds>(
      std::max(wanted, Clock::time_point()) - Clock::now(), std::chrono::nanoseconds(1));
  const auto seconds = std::chrono::floor<std::chrono::seconds>(delay);
  itimerspec alarm{};
  alarm.it_value = {.tv_sec = seconds.count(), .tv_nsec = (delay - seconds).count()};
  timerfd_settime(timer_.get(), 0, &alarm, nullptr);
}

void TransferLoop::watch(curl_socket_t socket, int interest) const {
  if (interest == CURL_POLL_REMOVE) {
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, socket, nullptr);
    return;
  }
  epoll_event event{.events = 0, .data = {.fd = socket}};
  if ((interest & CURL_POLL_IN) != 0) event.events |= EPOLLIN;
  if ((interest & CURL_POLL_OUT) != 0) event.events |= EPOLLOUT;
  if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, socket, &event) != 0) {
    epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, socket, &event);
  }
}

int TransferLoop::onSocket(CURL* /*easy*/, curl_socket_t socket, int interest, void* self,
                           void* /*unused*/) {
  static_cast<TransferLoop*>(self)->watch(socket, interest);
  return 0;
}

int TransferLoop::onTimer(CURLM* /*multi*/, long milliseconds, void* self) {
  static_cast<TransferLoop*>(self)->libraryDeadline_ =
      milliseconds < 0 ? Clock::time_point::max()
                       : Clock::now() + std::chrono::milliseconds(milliseconds);
  return 0;
}

}  // namespace orvane::platform
