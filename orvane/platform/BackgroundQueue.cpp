#include <orvane/platform/BackgroundQueue.h>
#include <orvane/platform/internal/BlockedSignals.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <thread>

namespace orvane::platform {
namespace {

boost::asio::thread_pool& pool() {
  // Never destroyed: work may still be running when the process exits, and must not find the pool
  // gone. At least four threads, so that callbacks of a host that block briefly leave room.
  static auto& instance = *[] {
    const BlockedSignals blocked;
    return new boost::asio::thread_pool(
        std::max(std::size_t{4}, std::size_t{std::thread::hardware_concurrency()}));
  }();
  return instance;
}

}  // namespace

void BackgroundQueue::async(std::move_only_function<void()> work) {
  boost::asio::post(pool(), std::move(work));
}

}  // namespace orvane::platform
