#include <orvane/platform/concurrency/WorkQueue.h>

#include <orvane/platform/concurrency/BackgroundQueue.h>

#include "support/Test.h"

#include <barrier>

namespace orvane::platform {
namespace {

TEST(WorkQueue, RunsTheWorkOfManyThreadsInOrderOneAtATime) {
  constexpr int kRounds = 500;
  std::vector<int> next(8);  // Unguarded on purpose: the queue itself must guard both.
  int outOfOrder = 0;
  WorkQueue queue(1);
  std::vector<std::jthread> threads;
  for (int& mine : next) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        queue.async([&, i] { outOfOrder += mine++ == i ? 0 : 1; });
        if (i % 10 == 0) {
          EXPECT_EQ(queue.sync([&] { return mine; }), i + 1);
        }
      }
    });
  }
  threads.clear();
  queue.sync([] {});
  EXPECT_EQ(outOfOrder, 0);
  EXPECT_EQ(next, std::vector(next.size(), kRounds));
}

TEST(WorkQueue, RunsAsManyAtATimeAsItsLimitSays) {
  constexpr int kLimit = 3;
  WorkQueue queue(kLimit);
  std::barrier all(kLimit);  // Nobody passes it unless so many run at a time.
  std::atomic<int> running = 0;
  std::latch done(4 * kLimit);
  for (int i = 0; i < 4 * kLimit; ++i) {
    queue.async([&] {
      EXPECT_LE(++running, kLimit);
      all.arrive_and_wait();
      --running;
      done.count_down();
    });
  }
  done.wait();
}

TEST(WorkQueue, SyncWorksWhenEveryPoolThreadIsTaken) {
  WorkQueue queue(1);
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
  std::promise<void> ran;  // By the pool, once `sync` has left the queue.
  queue.sync([&] { queue.async([&] { ran.set_value(); }); });
  EXPECT_EQ(ran.get_future().wait_for(1min), std::future_status::ready);
}

}  // namespace
}  // namespace orvane::platform
