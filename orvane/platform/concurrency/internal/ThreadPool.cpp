#include <orvane/platform/concurrency/internal/ThreadPool.h>

#include <orvane/platform/concurrency/BlockedSignals.h>
#include <orvane/platform/concurrency/ProcessExit.h>

#include <unistd.h>

#include <system_error>
#include <thread>
#include <utility>

namespace orvane::platform {

ThreadPool::ThreadPool(std::size_t size, void (*prepareThread)())
    : size_(size), prepareThread_(prepareThread) {
  ProcessExit::watch();
}

bool ThreadPool::run(Work work) {
  const std::lock_guard lock(mutex_);
  const bool isExiting = ProcessExit::hasBegun();
  if (!isExiting) growFor(pending_.size() + 1);
  if (threads_ == 0) return false;
  pending_.push_back(std::move(work));
  arrived_.notify_one();
  return !isExiting;
}

bool ThreadPool::hasThread() {
  const std::lock_guard lock(mutex_);
  if (threads_ == 0) growFor(1);
  return threads_ > 0;
}

void ThreadPool::growFor(std::size_t work) {
  if (work <= idle_ || threads_ == size_) return;
  try {
    const BlockedSignals blocked;
    std::thread([this] { serve(); }).detach();
    ++threads_;
  } catch (const std::system_error&) {  // NOLINT(bugprone-empty-catch): callers count the threads.
  }
}

void ThreadPool::serve() {
  ProcessExit::watchThisThread();
  prepareThread_();
  std::unique_lock lock(mutex_);
  for (;;) {
    ++idle_;
    arrived_.wait(lock, [this] { return !pending_.empty(); });
    --idle_;
    auto work = std::move(pending_.front());
    pending_.pop_front();
    lock.unlock();
    {
      const ProcessExit::Passage passage;
      while (!passage) ::pause();
      work();
      work = nullptr;  // What the work holds is released outside the lock.
    }
    lock.lock();
  }
}

}  // namespace orvane::platform
