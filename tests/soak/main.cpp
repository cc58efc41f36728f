// Four threads work with the engine on a real object store, on a way that loses one request in
// twenty, while a second device shares the bucket. In the end nothing that was acknowledged may be
// missing, no failure may be one that a lost connection does not explain, and neither memory nor
// descriptors may have grown.
//
// usage: orvane_soak SECONDS     through ctest, which says where the store is

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/platform/host/SystemLog.h>
#include <orvane/platform/http/UrlError.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncService.h>

#include "Findings.h"
#include "Resources.h"
#include "Work.h"
#include "support/ChildProcess.h"
#include "support/ObjectStore.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/TemporaryDirectory.h"

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
#include <vector>

namespace orvane::soak {
namespace {

using testing::ChildProcess;
using testing::configFor;
using testing::ObjectStore;
using Stop = std::stop_token;

constexpr int kSamples = 400;
constexpr int kShortestForMemory = 60;  ///< Seconds; the quarters of shorter runs tell nothing.

void becomeDevice() {
  if (!HostApplication::configure({.dataDirectory = testing::testDirectory() / "data"}) ||
      !TagDatabase::shared().initialize()) {
    throw std::runtime_error("the device's data cannot be opened");
  }
}

/// Prints what a new process finds in the files; with an argument, after the loss of the database.
const testing::ChildMain kReader("reader", [](const std::vector<std::string>& arguments) {
  if (!arguments.empty()) {
    std::filesystem::remove_all(testing::testDirectory() / "data" / "Documents");
  }
  becomeDevice();
  if (!arguments.empty()) {
    SystemLog::setSink([](std::string_view) {});
    const auto config = configFor(ObjectStore());
    if (!testing::run(TagSyncService::shared().downloadTagsFromS3(config)) ||
        !testing::run(TagSyncService::shared().downloadAllRemoteTags(config))) {
      return 1;
    }
  }
  for (const auto& ledger :
       {storedUploads(), storedTags(DeviceUUID::shared().uuid()), storedTags(kSecondDevice)}) {
    for (const auto& [name, content] : ledger) std::cout << name << '=' << content << '\n';
  }
  return 0;
});

Ledger ledgerOf(const std::string& text) {
  Ledger ledger;
  std::istringstream input(text);
  for (std::string name, content; std::getline(input, name, '=') && std::getline(input, content);) {
    ledger[name] = content;
  }
  return ledger;
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

/// Lets everybody work for so long. Returns what must be there in the end.
Ledger work(Findings& findings, Resources& resources, const S3Config& faulty,
            const S3Config& straight, int seconds) {
  Ledger uploads;
  Ledger tags;
  Ledger second;
  {
    const std::jthread uploading(
        [&](const Stop& stop) { uploads = uploadFiles(findings, faulty, stop); });
    const std::jthread listing([&](const Stop& stop) { listObjects(findings, faulty, stop); });
    const std::jthread tagging([&](const Stop& stop) { tags = writeTags(findings, stop); });
    const std::jthread syncing([&](const Stop& stop) {
      for (; !stop.stop_requested(); pause()) exchangeTags(findings, faulty);
    });
    const std::jthread playing(
        [&](const Stop& stop) { second = playSecondDevice(findings, straight, stop); });
    for (int i = 0; i < kSamples; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1000) * seconds / kSamples);
      resources.sample();
    }
  }
  uploads.merge(tags);
  uploads.merge(second);
  return uploads;
}

bool soak(int seconds) {
  const ObjectStore store;
  const auto straight = configFor(store);
  auto proxy = ChildProcess::start({"setpriv", "--pdeathsig", "KILL", "/usr/bin/python3",
                                    ORVANE_FAULTY_PROXY,
                                    store.endpoint().substr(store.endpoint().rfind(':') + 1)});
  auto faulty = straight;
  faulty.endpoint = "http://127.0.0.1:" + proxy.readLine().value();
  becomeDevice();
  // Outlives its users: the log may still write a line while the process exits.
  static auto& findings = *new Findings;
  Resources resources;
  watchLog(findings);
  const auto expected = work(findings, resources, faulty, straight, seconds);
  proxy.kill(SIGTERM);
  std::cout << seconds << " seconds; on the way " << proxy.readAll();

  exchangeTags(findings, straight);
  findings.expectSame(expected, ledgerOf(testing::outputOfChild("reader")));
  findings.expectSame(expected, ledgerOf(testing::outputOfChild("reader", {"restore"})));
  expectObjects(findings, store);
  for (const auto* some : {"uploads", "listings", "tag writes", "tag downloads that brought tags",
                           "objects checked in the bucket"}) {
    findings.expect(findings.countOf(some) > 0, std::string("there were no ") + some);
  }
  resources.judge(findings, seconds >= kShortestForMemory);
  resources.print(std::cout);
  return findings.report(std::cout);
}

}  // namespace
}  // namespace orvane::soak

int main(int argc, char** argv) {
  using namespace orvane;
  if (const auto status = testing::runAsChild(argc, argv)) return *status;
  if (argc != 2) return 2;
  const testing::TemporaryDirectory directory;
  setenv("ORVANE_TEST_DIRECTORY", directory.path().c_str(), 1);
  setenv("no_proxy", "127.0.0.1", 1);
  return soak::soak(std::stoi(argv[1])) ? 0 : 1;
}
