// Four threads work with the engine on a real object store, on a way that loses one request in
// twenty, while a second device shares the bucket. In the end nothing that was acknowledged may be
// missing, no failure may be one that a lost connection does not explain, and neither memory nor
// descriptors may have grown.
//
// usage: orvane_soak [--seconds N]     ORVANE_OBJECT_STORE names the env file of a running store

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/platform/HostApplication.h>
#include <orvane/platform/SystemLog.h>
#include <orvane/platform/UrlError.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncService.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Findings.h"
#include "Resources.h"
#include "Tags.h"
#include "Uploads.h"
#include "support/ChildProcess.h"
#include "support/ObjectStore.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/TemporaryDirectory.h"

namespace orvane::soak {
namespace {

using testing::ChildProcess;
using testing::configFor;
using testing::ObjectStore;
using Stop = std::stop_token;

constexpr int kSamples = 400;
constexpr int kShortestForMemory = 60;  ///< Seconds; the quarters of shorter runs tell nothing.
constexpr const char* kSecondDevice = "00000000-0000-4000-8000-000000000002";

void becomeDevice() {
  if (!HostApplication::configure({.dataDirectory = testing::testDirectory() / "data"}) ||
      !TagDatabase::shared().initialize()) {
    throw std::runtime_error("the device's data cannot be opened");
  }
}

/// Prints what a new process finds in the files; with an argument, after the loss of the database.
const testing::ChildMain kReader("reader", [](const std::vector<std::string>& arguments) {
  const auto documents = testing::testDirectory() / "data" / "Documents";
  if (!arguments.empty()) std::filesystem::remove_all(documents);
  becomeDevice();
  if (!arguments.empty()) {
    SystemLog::setSink([](std::string_view) {});
    const auto config = configFor(ObjectStore());
    if (!testing::run(TagSyncService::shared().downloadTagsFromS3(config)) ||
        !testing::run(TagSyncService::shared().downloadAllRemoteTags(config))) {
      return 1;
    }
  }
  for (const auto& lines : {Uploads::storedLines(), storedTags(DeviceUUID::shared().uuid()),
                            storedTags(kSecondDevice)}) {
    for (const auto& line : lines) std::cout << line << '\n';
  }
  return 0;
});

Lines linesOf(const std::string& text) {
  Lines lines;
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) lines.insert(line);
  return lines;
}

/// A download passes over an object that it cannot read, and only the log tells why.
void watchLog(Findings& findings) {
  SystemLog::setSink([&findings](std::string_view line) {
    if (!line.starts_with("[TagSync] Skipping device ")) return;
    const auto reason = platform::describe(platform::UrlErrorCode::networkConnectionLost);
    findings.count("tag objects passed over");
    findings.expect(line.contains(reason), std::string(line));
  });
}

/// Lets everybody work for so long. Returns the tags that must be there in the end.
Lines work(Findings& findings, Resources& resources, Uploads& uploads, const S3Config& faulty,
           const S3Config& straight, int seconds) {
  TagLedger own;
  TagLedger other;
  {
    const std::jthread uploading([&](const Stop& stop) { uploads.run(stop); });
    const std::jthread listing([&](const Stop& stop) { listObjects(findings, faulty, stop); });
    const std::jthread tagging([&](const Stop& stop) { own = writeTags(findings, stop); });
    const std::jthread syncing([&](const Stop& stop) { exchangeTags(findings, faulty, stop); });
    const std::jthread second([&](const Stop& stop) {
      other = playSecondDevice(findings, straight, kSecondDevice, stop);
    });
    const auto begun = std::chrono::steady_clock::now();
    for (int i = 1; i <= kSamples; ++i) {
      std::this_thread::sleep_until(begun +
                                    i * std::chrono::milliseconds(1000) * seconds / kSamples);
      resources.sample();
    }
  }
  auto tags = expectedTags(DeviceUUID::shared().uuid(), own);
  tags.merge(expectedTags(kSecondDevice, other));
  return tags;
}

bool soak(int seconds) {
  const ObjectStore store;
  const auto straight = configFor(store);
  const auto port = store.endpoint().substr(store.endpoint().rfind(':') + 1);
  auto proxy = ChildProcess::run("faulty-proxy", {port});
  auto faulty = straight;
  faulty.endpoint = "http://127.0.0.1:" + proxy.readLine().value();
  becomeDevice();
  // Outlives its users: the log may still write a line while the process exits.
  static auto& findings = *new Findings;
  Resources resources;
  watchLog(findings);
  Uploads uploads(findings, faulty);
  auto expected = work(findings, resources, uploads, faulty, straight, seconds);
  proxy.kill(SIGTERM);
  std::cout << seconds << " seconds; on the way " << proxy.readAll();

  exchangeTagsOnce(findings, straight);
  expected.merge(uploads.expectedLines());
  findings.expectSame(expected, linesOf(testing::outputOfChild("reader")));
  findings.expectSame(expected, linesOf(testing::outputOfChild("reader", {"restore"})));
  uploads.expectObjects(store);
  for (const auto* some : {"uploads", "listings", "tag writes", "tag downloads that brought tags",
                           "objects checked in the bucket"}) {
    findings.expectSome(some);
  }
  resources.judge(findings, seconds >= kShortestForMemory);
  findings.print(std::cout);
  resources.print(std::cout);
  std::cout << (findings.good() ? "Nothing is lost.\n" : "The soak has FAILED.\n");
  return findings.good();
}

}  // namespace
}  // namespace orvane::soak

int main(int argc, char** argv) {
  using namespace orvane;
  if (const auto status = testing::runAsChild(argc, argv)) return *status;
  // What each thread's cache of freed memory holds counts as allocated, and takes minutes to fill.
  if (getenv("GLIBC_TUNABLES") == nullptr) {
    setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
    execv("/proc/self/exe", argv);
  }
  constexpr int kTenMinutes = 600;
  const bool isLimited = argc == 3 && std::string_view(argv[1]) == "--seconds";
  const testing::TemporaryDirectory directory;
  setenv("ORVANE_TEST_DIRECTORY", directory.path().c_str(), 1);
  setenv("no_proxy", "127.0.0.1", 1);
  return soak::soak(isLimited ? std::stoi(argv[2]) : kTenMinutes) ? 0 : 1;
}
