#include <orvane/platform/concurrency/SerialQueue.h>

#include <orvane/platform/concurrency/BackgroundQueue.h>

#include "support/Test.h"

namespace orvane::platform {
namespace {

TEST(SerialQueue, RunsWorkInOrderOneAtATime) {
  constexpr int kWork = 2000;
  std::vector<int> order;  // Unguarded on purpose: the queue itself must guard it.
  SerialQueue queue("test");
  for (int i = 0; i < kWork; ++i) {
    queue.async([&, i] { order.push_back(i); });
    if (i % 100 == 0) {
      EXPECT_EQ(queue.sync([&] { return order.size(); }), static_cast<std::size_t>(i) + 1);
    }
  }
  EXPECT_EQ(queue.sync([&] { return order.back(); }), kWork - 1);
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(SerialQueue, ManyThreadsLoseNothing) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 500;
  int count = 0;
  {
    SerialQueue queue("test");
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < kRounds; ++i) {
          queue.async([&] { ++count; });
          queue.sync([&] { ++count; });
        }
      });
    }
    for (auto& thread : threads) thread.join();
    queue.async([&] { ++count; });
  }  // Waits for what is queued.
  EXPECT_EQ(count, 2 * kThreads * kRounds + 1);
}

TEST(SerialQueue, SyncWorksWhenEveryPoolThreadIsTaken) {
  SerialQueue queue("test");
  int value = 0;
  const int threads = std::max(4, static_cast<int>(std::thread::hardware_concurrency()));
  std::latch taken(threads);
  std::latch release(1);
  std::vector<std::future<int>> seen;
  for (int i = 0; i < threads; ++i) {
    auto task = std::make_shared<std::packaged_task<int()>>([&] {
      taken.count_down();
      release.wait();
      return queue.sync([&] { return value; });
    });
    seen.push_back(task->get_future());
    BackgroundQueue::async([task] { (*task)(); });
  }
  taken.wait();
  queue.async([&] { value = 7; });  // Nobody is free to run it but those who wait for it.
  EXPECT_EQ(queue.sync([&] { return value; }), 7);
  queue.async([&] { value = 8; });
  release.count_down();
  for (auto& result : seen) EXPECT_EQ(result.get(), 8);
}

}  // namespace
}  // namespace orvane::platform
