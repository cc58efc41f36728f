#include <orvane/bookkeeping/BandwidthStatsStore.h>

#include <orvane/platform/database/DatabaseQueue.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/host/Preferences.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace orvane {
namespace {

using ::testing::IsEmpty;

const std::string kSample =
    R"({"id":"0123abcd-EF01-2345-6789-abcdefABCDEF","timestamp":-1.5,"bytesPerSecond":3e2})";

std::string storedSamples() {
  const auto stored = Preferences::shared().bytes("bandwidth_samples_v1");
  return stored ? std::string(textOf(*stored)) : "none";
}

auto storedTotal() { return Preferences::shared().integer("bandwidth_total_bytes_v1"); }

void storeSamples(const std::string& json) {
  Preferences::shared().set("bandwidth_samples_v1", bytesOf(json));
}

std::vector<double> speedsIn(const BandwidthStatsStore& store) {
  std::vector<double> speeds;
  for (const auto& sample : store.samples()) speeds.push_back(sample.bytesPerSecond());
  return speeds;
}

TEST(BandwidthStatsStoreTest, KeepsBothFiguresUntilTheReset) {
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
  EXPECT_EQ(speedsIn(store), (std::vector{1000.5, 1000.5}));
  EXPECT_NE(samples[0].id(), samples[1].id());
  EXPECT_TRUE(before <= samples[0].timestamp() && samples[1].timestamp() <= Date::now());
  const BandwidthStatsStore another;
  EXPECT_EQ(another.totalBytesTransferred(), 8'999'999'999);
  EXPECT_EQ(another.samples(), samples);

  store.reset();
  EXPECT_EQ(store.totalBytesTransferred(), 0);
  EXPECT_THAT(store.samples(), IsEmpty());
  EXPECT_EQ(storedTotal(), 0);
  EXPECT_EQ(storedSamples(), "none");
}

TEST(BandwidthStatsStoreTest, KeepsTheLastSixtySamples) {
  std::string list = "[" + kSample;
  for (int i = 1; i < 70; ++i) list += "," + kSample;
  storeSamples(list + "]");
  BandwidthStatsStore store;
  EXPECT_EQ(store.samples().size(), 70U);
  store.addSample(1);
  std::vector<double> speeds(60, 300);
  speeds.back() = 1;
  EXPECT_EQ(speedsIn(store), speeds);
  EXPECT_EQ(BandwidthStatsStore().samples(), store.samples());
}

TEST(BandwidthStatsStoreTest, ReadsAndWritesJson) {
  storeSamples("[ " + kSample + R"( ,{"x":[],"bytesPerSecond":0.25,"timestamp":1,)" +
               R"("id":"00000000-0000-0000-0000-000000000000"}])");
  BandwidthStatsStore store;
  store.addSample(2);
  const auto json =
      R"([{"id":"0123ABCD-EF01-2345-6789-ABCDEFABCDEF","timestamp":-1.5,"bytesPerSecond":300},)"
      R"({"id":"00000000-0000-0000-0000-000000000000","timestamp":1,"bytesPerSecond":0.25},)"
      R"({"id":")" +
      store.samples().back().id() + R"(","timestamp":)";
  EXPECT_TRUE(storedSamples().starts_with(json)) << storedSamples();
}

TEST(BandwidthStatsStoreTest, LoadsWholeListsOnly) {
  Preferences::shared().set("bandwidth_total_bytes_v1", std::int64_t{7});
  const auto withoutNumber = kSample.substr(0, kSample.size() - 4);
  for (const auto& json :
       {std::string(), std::string("{}"), kSample, "[" + kSample, "[" + kSample + "]x",
        "[" + kSample + ",3]", "[" + kSample + R"(,{"timestamp":1,"bytesPerSecond":1}])",
        std::string(R"([{"id":"0123","timestamp":1,"bytesPerSecond":1}])"),
        "[" + withoutNumber + "null}]", "[" + withoutNumber + "1e999}]"}) {
    storeSamples(json);
    EXPECT_THAT(BandwidthStatsStore().samples(), IsEmpty()) << json;
    EXPECT_EQ(BandwidthStatsStore().totalBytesTransferred(), 7);
    EXPECT_EQ(storedSamples(), json);
  }
  BandwidthStatsStore().addSample(5);
  EXPECT_EQ(speedsIn(BandwidthStatsStore()), std::vector<double>{5});
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

TEST(BandwidthStatsStoreTest, WhatCannotBeReadYetIsAddedLater) {
  BandwidthStatsStore earlier;
  earlier.addCompletedBytes(1000);
  earlier.addSample(1);
  const auto file = HostApplication::applicationSupportDirectory().value() / "preferences.sqlite";
  // Nobody else can open it: as a file that another process holds, it is there but not to be read.
  std::filesystem::rename(file, file.string() + "-held");
  std::filesystem::create_directory(file);
  BandwidthStatsStore store;
  store.addCompletedBytes(5);
  store.addSample(2);
  EXPECT_EQ(store.totalBytesTransferred(), 5);
  std::filesystem::remove(file);
  std::filesystem::rename(file.string() + "-held", file);
  store.addCompletedBytes(20);
  EXPECT_EQ(storedTotal(), 1025);
  EXPECT_EQ(speedsIn(store), (std::vector<double>{1, 2}));
  store.addSample(3);
  EXPECT_EQ(BandwidthStatsStore().samples(), store.samples());
}

TEST(BandwidthStatsStoreTest, AFileThatIsHeldDelaysOnce) {
  Preferences::shared().set("any", true);
  const auto holder = platform::DatabaseQueue::open(
      HostApplication::applicationSupportDirectory().value() / "preferences.sqlite",
      [](platform::Database& database) { return database.execute("BEGIN EXCLUSIVE"); });
  ASSERT_TRUE(holder) << holder.error().description();
  const auto start = std::chrono::steady_clock::now();
  BandwidthStatsStore store;
  store.addSample(1);
  store.addCompletedBytes(1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(19));
}

TEST(BandwidthStatsStoreTest, TheTotalStaysAtTheEndsOfItsRange) {
  BandwidthStatsStore store;
  for (const auto& [added, total] : {std::pair{INT64_MAX, INT64_MAX},
                                     {1L, INT64_MAX},
                                     {INT64_MIN, -1L},
                                     {INT64_MIN, INT64_MIN}}) {
    store.addCompletedBytes(added);
    EXPECT_EQ(store.totalBytesTransferred(), total);
    EXPECT_EQ(storedTotal(), total);
  }
}

TEST(BandwidthStatsStoreTest, WhatIsStoredEndsAsWhatIsInMemory) {
  BandwidthStatsStore store;
  for (int round = 0; round < 20; ++round) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 5; ++thread) {
      threads.emplace_back([&store, thread, round] {
        store.addSample(thread);
        store.addCompletedBytes(thread);
        if (thread == round) store.reset();
      });
    }
    threads.clear();
    ASSERT_EQ(storedTotal(), store.totalBytesTransferred());
    ASSERT_EQ(BandwidthStatsStore().samples(), store.samples());
  }
}

}  // namespace
}  // namespace orvane
