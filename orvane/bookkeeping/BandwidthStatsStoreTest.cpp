#include <orvane/bookkeeping/BandwidthStatsStore.h>

#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/host/Preferences.h>

#include "support/Test.h"

#include <fstream>

namespace orvane {
namespace {

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

fs::path preferencesFile() {
  return HostApplication::applicationSupportDirectory().value() / "preferences.sqlite";
}

std::vector<double> speedsIn(const BandwidthStatsStore& store) {
  std::vector<double> speeds;
  for (const auto& sample : store.samples()) speeds.push_back(sample.bytesPerSecond());
  return speeds;
}

TEST(BandwidthStatsStoreTest, KeepsBothFiguresUntilTheReset) {
  auto& store = BandwidthStatsStore::shared();
  EXPECT_EQ(store.totalBytesTransferred(), 0);
  store.addCompletedBytes(0);
  EXPECT_EQ(storedTotal(), 0);
  store.addCompletedBytes(9'000'000'000);
  store.addCompletedBytes(-1);
  const auto before = Date::now();
  for (int i = 0; i < 2; ++i) store.addSample(1000.5);
  const auto samples = store.samples();
  EXPECT_EQ(speedsIn(store), (std::vector{1000.5, 1000.5}));
  EXPECT_NE(samples[0].id(), samples[1].id());
  EXPECT_TRUE(before <= samples[0].timestamp() && samples[1].timestamp() <= Date::now());
  EXPECT_EQ(BandwidthStatsStore().totalBytesTransferred(), 8'999'999'999);
  EXPECT_EQ(BandwidthStatsStore().samples(), samples);
  store.reset();
  EXPECT_EQ(store.totalBytesTransferred(), 0);
  EXPECT_THAT(store.samples(), IsEmpty());
  EXPECT_EQ(storedTotal(), 0);
  EXPECT_EQ(storedSamples(), "none");
  for (const auto end : {INT64_MAX, INT64_MIN}) {
    for (int i = 0; i < 3; ++i) store.addCompletedBytes(end);
    EXPECT_EQ(store.totalBytesTransferred(), end);  // It stays at the ends of its range.
    EXPECT_EQ(storedTotal(), end);
  }
}

TEST(BandwidthStatsStoreTest, ReadsWholeListsAndKeepsTheLastSixty) {
  std::ifstream lines(fs::path(ORVANE_JSON_FILES) / "refused-samples.txt");
  int count = 0;
  for (std::string json; std::getline(lines, json); ++count) {
    storeSamples(json);
    EXPECT_THAT(BandwidthStatsStore().samples(), IsEmpty()) << json;
    EXPECT_EQ(storedSamples(), json);
  }
  EXPECT_EQ(count, 7);
  BandwidthStatsStore().addSample(5);
  EXPECT_EQ(speedsIn(BandwidthStatsStore()), std::vector<double>{5});

  std::string list = "[ " + kSample;
  for (int i = 1; i < 70; ++i) list += "," + kSample;
  storeSamples(list + R"( ,{"x":[],"bytesPerSecond":0.25,"timestamp":1,)" +
               R"("id":"00000000-0000-0000-0000-000000000000"}])");
  BandwidthStatsStore store;
  EXPECT_EQ(store.samples().size(), 71U);
  store.addSample(1);
  std::vector<double> speeds(58, 300);
  speeds.insert(speeds.end(), {0.25, 1});
  EXPECT_EQ(speedsIn(store), speeds);
  EXPECT_EQ(BandwidthStatsStore().samples(), store.samples());
  EXPECT_THAT(storedSamples(), StartsWith(R"([{"id":"0123ABCD-EF01-2345-6789-ABCDEFABCDEF",)"
                                          R"("timestamp":-1.5,"bytesPerSecond":300},)"));
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
  // Nobody else can open it: as a file that another process holds, it is there but not to be read.
  const auto held = preferencesFile().string() + "-held";
  fs::rename(preferencesFile(), held);
  fs::create_directory(preferencesFile());
  BandwidthStatsStore store;
  store.addCompletedBytes(5);
  store.addSample(2);
  EXPECT_EQ(store.totalBytesTransferred(), 5);
  fs::remove(preferencesFile());
  fs::rename(held, preferencesFile());
  store.addCompletedBytes(20);
  EXPECT_EQ(storedTotal(), 1025);
  EXPECT_EQ(speedsIn(store), (std::vector<double>{1, 2}));
  store.addSample(3);
  EXPECT_EQ(BandwidthStatsStore().samples(), store.samples());
}

TEST(BandwidthStatsStoreTest, WhatIsStoredEndsAsWhatIsInMemory) {
  BandwidthStatsStore store;
  for (int round = 0; round < 20; ++round) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&store] {
        store.addCompletedBytes(1);
        store.addSample(1);
      });
    }
    threads.clear();
    ASSERT_EQ(storedTotal(), store.totalBytesTransferred());
    ASSERT_EQ(BandwidthStatsStore().samples(), store.samples());
  }
}

}  // namespace
}  // namespace orvane
