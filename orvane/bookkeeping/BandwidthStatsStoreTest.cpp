#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/bookkeeping/BandwidthStatsStore.h>
#include <orvane/platform/Preferences.h>

#include <cmath>
#include <cstdint>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"

namespace orvane {
namespace {

using orvane::testing::ChildMain;
using orvane::testing::outputOfChild;
using ::testing::IsEmpty;

constexpr const char* kSample =
    R"({"id":"0123abcd-EF01-2345-6789-abcdefABCDEF","timestamp":-1.5,"bytesPerSecond":3e2})";

std::string storedSamples() {
  const auto stored = Preferences::shared().bytes("bandwidth_samples_v1");
  return stored ? std::string(textOf(*stored)) : "none";
}

auto storedTotal() { return Preferences::shared().integer("bandwidth_total_bytes_v1"); }

void storeSamples(const std::string& json) {
  Preferences::shared().set("bandwidth_samples_v1", bytesOf(json));
}

std::string listOf(int count) {
  std::string json;
  for (int i = 0; i < count; ++i) json += (i == 0 ? "" : ",") + std::string(kSample);
  return "[" + json + "]";
}

std::vector<double> speedsIn(const BandwidthStatsStore& store) {
  std::vector<double> speeds;
  for (const auto& sample : store.samples()) speeds.push_back(sample.bytesPerSecond());
  return speeds;
}

const ChildMain kReader("bandwidth-reader", [](const auto&) {
  const auto& store = BandwidthStatsStore::shared();
  std::cout << store.totalBytesTransferred();
  for (const auto& sample : store.samples()) {
    std::cout << ' ' << sample.id() << ' ' << sample.bytesPerSecond();
  }
  return 0;
});

TEST(BandwidthStatsStoreTest, KeepsBothFiguresAcrossProcesses) {
  auto& store = BandwidthStatsStore::shared();
  EXPECT_EQ(store.totalBytesTransferred(), 0);
  EXPECT_THAT(store.samples(), IsEmpty());
  store.addCompletedBytes(0);
  EXPECT_EQ(storedTotal(), 0);
  store.addCompletedBytes(9'000'000'000);
  store.addCompletedBytes(-1);

  const auto before = Date::now();
  store.addSample(1000.5);
  store.addSample(1000.5);
  const auto samples = store.samples();
  ASSERT_EQ(samples.size(), 2U);
  EXPECT_NE(samples[0].id(), samples[1].id());
  EXPECT_TRUE(before <= samples[0].timestamp() && samples[1].timestamp() <= Date::now());
  EXPECT_EQ(outputOfChild("bandwidth-reader"),
            "8999999999 " + samples[0].id() + " 1000.5 " + samples[1].id() + " 1000.5");
  EXPECT_EQ(BandwidthStatsStore().samples(), samples);

  store.reset();
  EXPECT_EQ(store.totalBytesTransferred(), 0);
  EXPECT_THAT(store.samples(), IsEmpty());
  EXPECT_EQ(outputOfChild("bandwidth-reader"), "0");
  EXPECT_EQ(storedTotal(), 0);
  EXPECT_EQ(storedSamples(), "none");
}

TEST(BandwidthStatsStoreTest, SamplesOfOneInstantDiffer) {
  const Date instant{1.5};
  const BandwidthSample first(instant, 3);
  const BandwidthSample second(instant, 3);
  EXPECT_NE(first.id(), second.id());
  EXPECT_TRUE(first.timestamp() == instant && first.bytesPerSecond() == 3);
}

TEST(BandwidthStatsStoreTest, KeepsTheLastSixtySamples) {
  BandwidthStatsStore store;
  std::vector<double> speeds;
  for (int i = 1; i <= 61; ++i) store.addSample(i);
  for (int i = 2; i <= 61; ++i) speeds.push_back(i);
  EXPECT_EQ(speedsIn(store), speeds);
  EXPECT_EQ(speedsIn(BandwidthStatsStore()), speeds);

  storeSamples(listOf(70));
  BandwidthStatsStore full;
  EXPECT_EQ(full.samples().size(), 70U);
  full.addSample(1);
  EXPECT_EQ(full.samples().size(), 60U);
  EXPECT_EQ(full.samples().back().bytesPerSecond(), 1);
  EXPECT_EQ(BandwidthStatsStore().samples(), full.samples());
}

TEST(BandwidthStatsStoreTest, LoadsWholeListsOnly) {
  storeSamples(listOf(1));
  const auto sample = BandwidthStatsStore().samples().at(0);
  EXPECT_EQ(sample.id(), "0123ABCD-EF01-2345-6789-ABCDEFABCDEF");
  EXPECT_EQ(sample.timestamp().secondsSinceReferenceDate, -1.5);
  EXPECT_EQ(sample.bytesPerSecond(), 300);

  Preferences::shared().set("bandwidth_total_bytes_v1", std::int64_t{7});
  const std::string good = kSample;
  for (const auto& json :
       {std::string(), std::string("{}"), good, "[" + good, "[" + good + "]x", "[" + good + ",3]",
        "[" + good + R"(,{"id":"0123abcd-EF01-2345-6789-abcdefABCDEF","timestamp":1}])",
        std::string(R"([{"id":"0123","timestamp":1,"bytesPerSecond":1}])"),
        "[" + good.substr(0, good.size() - 4) + "null}]",
        "[" + good.substr(0, good.size() - 4) + "1e999}]"}) {
    storeSamples(json);
    EXPECT_THAT(BandwidthStatsStore().samples(), IsEmpty()) << json;
    EXPECT_EQ(BandwidthStatsStore().totalBytesTransferred(), 7);
    EXPECT_EQ(storedSamples(), json);
  }
  BandwidthStatsStore().addSample(5);
  EXPECT_EQ(speedsIn(BandwidthStatsStore()), std::vector<double>{5});
}

TEST(BandwidthStatsStoreTest, WritesCompactJson) {
  storeSamples("[ " + std::string(kSample) + R"( ,{"x":[],"bytesPerSecond":0.25,"timestamp":1,)" +
               R"("id":"00000000-0000-0000-0000-000000000000"}])");
  BandwidthStatsStore store;
  store.addSample(2);
  const auto last = store.samples().back();
  EXPECT_THAT(
      storedSamples(),
      ::testing::StartsWith(R"([{"id":"0123ABCD-EF01-2345-6789-ABCDEFABCDEF","timestamp":-1.5,)"
                            R"("bytesPerSecond":300},{"id":"00000000-0000-0000-0000-000000000000",)"
                            R"("timestamp":1,"bytesPerSecond":0.25},{"id":")" +
                            last.id() + R"(","timestamp":)"));
}

TEST(BandwidthStatsStoreTest, KeepsWhatIsNotFiniteInMemoryOnly) {
  BandwidthStatsStore store;
  store.addSample(1);
  const auto stored = storedSamples();
  store.addSample(HUGE_VAL);
  for (int i = 0; i < 59; ++i) store.addSample(2);
  EXPECT_EQ(store.samples().front().bytesPerSecond(), HUGE_VAL);
  EXPECT_EQ(storedSamples(), stored);
  store.addSample(3);
  EXPECT_EQ(BandwidthStatsStore().samples(), store.samples());
}

TEST(BandwidthStatsStoreTest, TheTotalStaysAtTheEndsOfItsRange) {
  BandwidthStatsStore store;
  for (const auto& [added, total] : {std::pair{INT64_MAX - 1, INT64_MAX - 1},
                                     {1L, INT64_MAX},
                                     {INT64_MAX, INT64_MAX},
                                     {INT64_MIN, -1L},
                                     {INT64_MIN, INT64_MIN},
                                     {-1L, INT64_MIN}}) {
    store.addCompletedBytes(added);
    EXPECT_EQ(store.totalBytesTransferred(), total);
    EXPECT_EQ(storedTotal(), total);
  }
}

TEST(BandwidthStatsStoreTest, WhatIsStoredEndsAsWhatIsInMemory) {
  BandwidthStatsStore store;
  for (int round = 0; round < 20; ++round) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 5; ++thread) {
      threads.emplace_back([&store, thread, round] {
        store.addSample(thread);
        store.addCompletedBytes(thread);
        if (thread == round) store.reset();
      });
    }
    for (auto& thread : threads) thread.join();
    ASSERT_EQ(storedTotal(), store.totalBytesTransferred());
    ASSERT_EQ(BandwidthStatsStore().samples(), store.samples());
  }
}

}  // namespace
}  // namespace orvane
