#include <orvane/platform/UrlError.h>
#include <orvane/platform/internal/BlockedSignals.h>
#include <orvane/platform/internal/TransferLoop.h>

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

namespace orvane::platform {
namespace {

constexpr std::size_t kIdleHandles = 8;

CURLM* makeMulti() {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM* multi = curl_multi_init();
  if (multi == nullptr) throw std::bad_alloc();
  return multi;
}

}  // namespace

/// Joins the thread before the libraries under it are torn down.
struct TransferLoop::StopAtExit {
  ~StopAtExit() { shared().stop(); }
};

TransferLoop& TransferLoop::shared() {
  // Never destroyed: sessions that outlive it may still hand connections back.
  static auto& instance = *new TransferLoop;
  static const StopAtExit stopAtExit;
  return instance;
}

TransferLoop::TransferLoop() : multi_(makeMulti()) {
  const BlockedSignals blocked;
  thread_ = std::thread([this] { run(); });
}

void TransferLoop::start(std::shared_ptr<Transfer> transfer) {
  enqueue([transfer = std::move(transfer)](TransferLoop& loop) mutable {
    loop.begin(std::move(transfer));
  });
}

void TransferLoop::cancel(std::shared_ptr<Transfer> transfer) {
  enqueue([transfer = std::move(transfer)](TransferLoop& loop) {
    loop.remove(transfer.get());
    transfer->report(std::unexpected(urlError(UrlErrorCode::cancelled)));
  });
}

void TransferLoop::release(CURLSH* connections) {
  enqueue([connections](TransferLoop&) { curl_share_cleanup(connections); });
}

void TransferLoop::enqueue(Command command) {
  const std::lock_guard lock(mutex_);
  if (stopped_) return;
  commands_.push_back(std::move(command));
  curl_multi_wakeup(multi_);
}

void TransferLoop::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    curl_multi_wakeup(multi_);
  }
  thread_.join();
}

void TransferLoop::run() {
  for (;;) {
    {
      const std::lock_guard lock(mutex_);
      if (stopped_) return;
    }
    runCommands();
    int running = 0;
    curl_multi_perform(multi_, &running);
    finishCompleted();
    endStalled();
    curl_multi_poll(multi_, nullptr, 0, pollTimeout(), nullptr);
  }
}

void TransferLoop::runCommands() {
  std::vector<Command> commands;
  {
    const std::lock_guard lock(mutex_);
    commands.swap(commands_);
  }
  for (auto& command : commands) command(*this);
}

void TransferLoop::begin(std::shared_ptr<Transfer> transfer) {
  if (auto refusal = transfer->refusal()) {
    return transfer->report(std::unexpected(std::move(*refusal)));
  }
  CURL* easy = nullptr;
  if (idleHandles_.empty()) {
    easy = curl_easy_init();
  } else {
    easy = idleHandles_.back();
    idleHandles_.pop_back();
  }
  if (easy == nullptr) {
    return transfer->report(std::unexpected(urlError(UrlErrorCode::unknown, "out of memory")));
  }
  transfer->attach(easy);
  nextStallCheck_ = std::min(nextStallCheck_, Transfer::Clock::now() + transfer->checkInterval());
  curl_multi_add_handle(multi_, easy);
  active_.push_back(std::move(transfer));
}

void TransferLoop::finishCompleted() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    Transfer* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    auto result = transfer->result(message->data.result);
    remove(transfer)->report(std::move(result));
  }
}

void TransferLoop::endStalled() {
  const auto now = Transfer::Clock::now();
  if (now < nextStallCheck_) return;
  nextStallCheck_ = Transfer::Clock::time_point::max();
  std::vector<Transfer*> stalled;
  for (const auto& transfer : active_) {
    if (transfer->hasStalled(now)) {
      stalled.push_back(transfer.get());
    } else {
      nextStallCheck_ = std::min(nextStallCheck_, now + transfer->checkInterval());
    }
  }
  for (const auto* transfer : stalled) {
    remove(transfer)->report(std::unexpected(urlError(UrlErrorCode::timedOut)));
  }
}

std::shared_ptr<Transfer> TransferLoop::remove(const Transfer* transfer) {
  const auto found = std::ranges::find(active_, transfer, &std::shared_ptr<Transfer>::get);
  if (found == active_.end()) return nullptr;
  auto removed = std::move(*found);
  active_.erase(found);
  CURL* easy = removed->easy();
  curl_multi_remove_handle(multi_, easy);
  if (idleHandles_.size() < kIdleHandles) {
    curl_easy_reset(easy);
    curl_easy_setopt(easy, CURLOPT_SHARE, nullptr);  // A reset leaves the share in place.
    idleHandles_.push_back(easy);
  } else {
    curl_easy_cleanup(easy);
  }
  return removed;
}

int TransferLoop::pollTimeout() const {
  // Without transfers only a wake-up can bring work; the limit is as good as none.
  if (active_.empty()) return 1'000'000'000;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(nextStallCheck_ - Transfer::Clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

}  // namespace orvane::platform
