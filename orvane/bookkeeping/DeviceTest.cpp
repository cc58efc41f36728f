#include <orvane/bookkeeping/AppSettings.h>
#include <orvane/bookkeeping/BandwidthStatsStore.h>
#include <orvane/bookkeeping/Date.h>
#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/host/Preferences.h>

#include "support/Test.h"

namespace orvane {
namespace {

using std::chrono::sys_days;

const ChildMain kShow("show-settings",
                      [](auto&) { return AppSettings::isThumbnailGenerationEnabled() ? 1 : 0; });

TEST(AppSettings, WhatIsSetHereIsReadEverywhere) {
  EXPECT_FALSE(AppSettings::isThumbnailGenerationEnabled());
  for (const bool enabled : {true, false, true}) {
    AppSettings::setThumbnailGenerationEnabled(enabled);
    EXPECT_EQ(AppSettings::isThumbnailGenerationEnabled(), enabled);
    EXPECT_EQ(ChildProcess::run("show-settings").wait(), enabled ? 1 : 0);
  }
}

TEST(DateTest, CountsFromItsReferenceWithinTheClock) {
  EXPECT_EQ(Date::from(sys_days(1970y / 1 / 1)), Date{-978'307'200});
  EXPECT_EQ(Date::from(sys_days(2024y / 2 / 29) + 12h + 500ms), Date{730'900'800.5});
  EXPECT_EQ(Date{-1'293'926'400.25}.timePoint(), sys_days(1960y / 1 / 1) - 250ms);
  EXPECT_EQ(Date::from(sys_days(1677y / 9 / 22)).timePoint(), sys_days(1677y / 9 / 22));
  for (const auto end : {Date::TimePoint::min(), Date::TimePoint::max()}) {
    const auto near = Date::from(end).timePoint();
    EXPECT_LE(near < end ? end - near : near - end, 2us);
  }
  for (const double far : {1e300, HUGE_VAL, std::nan(""), -1e300, -HUGE_VAL}) {
    EXPECT_EQ(Date{far}.timePoint(), far < 0 ? Date::TimePoint::min() : Date::TimePoint::max());
  }
}

constexpr const char* kForm = "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}";

fs::path itemFile() {
  return testDirectory() / "data/org.orvane.engine/Secrets/device_uuid_v1.secret";
}

std::string uuid() { return DeviceUUID::shared().uuid(); }

/// The identifier when it is looked for in the store anew.
std::string uuidReadAgain() {
  DeviceUUID::shared().resetForTesting();
  return uuid();
}

/// Says the identifier twice and ends without writing what standard output still holds.
const ChildMain kAsker("device-uuid", [](const auto&) {
  for (int i = 0; i < 2; ++i) {
    const auto line = uuid() + "\n";
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0) return 1;
  }
  _exit(0);
});

TEST(DeviceUUID, IsMadeOnceAndKept) {
  const auto first = uuid();
  EXPECT_THAT(first, MatchesRegex(kForm));
  EXPECT_EQ(readFile(itemFile()), first);
  EXPECT_EQ(uuidReadAgain(), first);
  fs::remove(itemFile());
  EXPECT_EQ(uuid(), first);
  EXPECT_NE(uuidReadAgain(), first);

  for (const auto& text :
       {"not a UUID"s, "6f1c2a90-3b7d-4e21-9c55-0a8e7b3d2f14"s, ""s, "a\0b\n"s}) {
    writeFile(itemFile(), text);
    EXPECT_EQ(uuidReadAgain(), text);
    EXPECT_EQ(readFile(itemFile()), text);
  }
  writeFile(itemFile(), "\xff not UTF-8");
  EXPECT_THAT(uuidReadAgain(), MatchesRegex(kForm));
  EXPECT_EQ(readFile(itemFile()), uuid());
}

TEST(DeviceUUID, LastsAProcessWhenItCannotBeSaved) {
  fs::create_directories(itemFile());
  const auto output = outputOfChild("device-uuid");
  const auto first = output.substr(output.size() - 37);
  EXPECT_EQ(output, "Keychain save error: " + std::to_string(EISDIR) + '\n' + first + first);
  EXPECT_THAT(first, MatchesRegex(kForm + "\n"s));
  EXPECT_NE(outputOfChild("device-uuid"), output);
  unsetenv("XDG_DATA_HOME");
  unsetenv("HOME");
  EXPECT_THAT(outputOfChild("device-uuid"), StartsWith("Keychain save error: -25291\n"));
}

TEST(DeviceUUID, IsOneForProcessesThatAskAtOnce) {
  for (int round = 0; round < 20; ++round) {
    fs::remove(itemFile());
    std::vector<ChildProcess> children;
    for (int i = 0; i < 4; ++i) children.push_back(ChildProcess::run("device-uuid"));
    std::set<std::string> answers;
    for (auto& child : children) answers.insert(child.readAll());
    EXPECT_EQ(answers.size(), 1U) << "round " << round;
  }
}

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

}  // namespace
}  // namespace orvane
