#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/platform/FileSecureStore.h>
#include <orvane/platform/HostApplication.h>
#include <orvane/platform/SecretServiceStore.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/SecretService.h"
#include "support/TemporaryDirectory.h"

namespace orvane {
namespace {

using orvane::testing::ChildMain;
using orvane::testing::outputOfChild;
using ::testing::MatchesRegex;
using namespace std::string_literals;

constexpr const char* kForm = "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}";

std::filesystem::path itemFile() {
  return orvane::testing::testDirectory() / "data/org.orvane.engine/Secrets" /
         "device_uuid_v1.secret";
}

/// Says the identifier twice and ends without writing what standard output still holds.
const ChildMain kAsker("device-uuid", [](const auto&) {
  for (int i = 0; i < 2; ++i) {
    const auto line = DeviceUUID::shared().uuid() + "\n";
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0) return 1;
  }
  _exit(0);
});

TEST(DeviceUUID, IsMadeOnceAndKept) {
  auto& device = DeviceUUID::shared();
  const auto first = device.uuid();
  EXPECT_THAT(first, MatchesRegex(kForm));
  EXPECT_EQ(testing::readFile(itemFile()), first);
  EXPECT_EQ(outputOfChild("device-uuid"), first + "\n" + first + "\n");
  device.resetForTesting();
  EXPECT_EQ(device.uuid(), first);

  testing::writeFile(itemFile(), "changed");
  EXPECT_EQ(device.uuid(), first);
  std::filesystem::remove(itemFile());
  EXPECT_EQ(device.uuid(), first);
  device.resetForTesting();
  EXPECT_NE(device.uuid(), first);
}

TEST(DeviceUUID, TakesAnyStoredText) {
  auto& device = DeviceUUID::shared();
  for (const auto& text :
       {"not a UUID"s, "6f1c2a90-3b7d-4e21-9c55-0a8e7b3d2f14"s, ""s, " \u00e8\n"s, "a\0b"s}) {
    testing::writeFile(itemFile(), text);
    device.resetForTesting();
    EXPECT_EQ(device.uuid(), text);
    EXPECT_EQ(testing::readFile(itemFile()), text);
  }
  testing::writeFile(itemFile(), "\xff not UTF-8");
  device.resetForTesting();
  const auto uuid = device.uuid();
  EXPECT_THAT(uuid, MatchesRegex(kForm));
  EXPECT_EQ(testing::readFile(itemFile()), uuid);
}

TEST(DeviceUUID, LastsAProcessWhenItCannotBeSaved) {
  const auto expectOneUse = [](const std::string& code) {
    const auto output = outputOfChild("device-uuid");
    const auto line = "Keychain save error: " + code + "\n";
    ASSERT_EQ(output.substr(0, line.size()), line);
    const auto first = output.substr(line.size(), 37);
    EXPECT_THAT(first, MatchesRegex(kForm + "\n"s));
    EXPECT_EQ(output.substr(line.size()), first + first);
    EXPECT_NE(outputOfChild("device-uuid"), output);
  };
  std::filesystem::create_directories(itemFile());
  expectOneUse(std::to_string(EISDIR));
  unsetenv("XDG_DATA_HOME");
  unsetenv("HOME");
  expectOneUse("-25291");
}

/// A host's own store, which counts what is stored.
class CountingStore final : public SecureStore {
 public:
  explicit CountingStore(std::unique_ptr<SecureStore> store) : store_(std::move(store)) {}

  Result<std::optional<Bytes>> read(std::string_view account) override {
    return store_->read(account);
  }
  Result<void> replace(std::string_view account, ByteView data) override {
    ++replacements;
    return store_->replace(account, data);
  }

  std::atomic<int> replacements = 0;

 private:
  std::unique_ptr<SecureStore> store_;
};

void expectOneForAllThreads(std::unique_ptr<SecureStore> kept) {
  const auto store = std::make_shared<CountingStore>(std::move(kept));
  ASSERT_TRUE(HostApplication::configure({.secureStore = store}));
  constexpr int kThreads = 16;
  std::vector<std::string> answers(kThreads);
  std::barrier start(kThreads);
  std::vector<std::jthread> threads;
  for (auto& answer : answers) {
    threads.emplace_back([&answer, &start] {
      start.arrive_and_wait();
      answer = DeviceUUID::shared().uuid();
    });
  }
  threads.clear();
  EXPECT_EQ(std::set(answers.begin(), answers.end()).size(), 1U);
  EXPECT_EQ(store->replacements, 1);
  const auto item = store->read(DeviceUUID::keychainKey);
  ASSERT_TRUE(item && *item);
  EXPECT_EQ(textOf(**item), answers.front());
}

TEST(DeviceUUID, IsOneForThreadsThatAskAtOnce) {
  expectOneForAllThreads(std::make_unique<FileSecureStore>());
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(itemFile().parent_path()), {}), 1);
}

TEST(DeviceUUID, IsOneForProcessesThatAskAtOnce) {
  for (int round = 0; round < 20; ++round) {
    std::filesystem::remove(itemFile());
    std::vector<testing::ChildProcess> children;
    for (int i = 0; i < 4; ++i) children.push_back(testing::ChildProcess::run("device-uuid"));
    std::set<std::string> answers;
    for (auto& child : children) answers.insert(child.readAll());
    EXPECT_EQ(answers.size(), 1U) << "round " << round;
  }
}

#ifdef ORVANE_WITH_SECRET_SERVICE
TEST(DeviceUUID, IsKeptInTheSecretServiceByChoice) {
  const testing::SessionBus bus;
  const testing::SecretService service;
  expectOneForAllThreads(std::make_unique<SecretServiceStore>());
  EXPECT_EQ(testing::SecretService::countItems("device_uuid_v1"), 1U);
  EXPECT_FALSE(std::filesystem::exists(itemFile()));
}

TEST(DeviceUUID, LeavesTheItemOfALockedSecretServiceAlone) {
  const testing::SessionBus bus;
  testing::SecretService service;
  ASSERT_TRUE(HostApplication::configure({.secureStore = std::make_shared<SecretServiceStore>()}));
  auto& device = DeviceUUID::shared();
  const auto stored = device.uuid();
  service.lock();
  device.resetForTesting();
  ::testing::internal::CaptureStdout();
  const auto temporary = device.uuid();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Keychain save error: -25308\n");
  EXPECT_THAT(temporary, MatchesRegex(kForm));
  EXPECT_NE(temporary, stored);
  service.restart();
  EXPECT_EQ(service.countItems("device_uuid_v1"), 1U);
  EXPECT_EQ(device.uuid(), temporary);
  device.resetForTesting();
  EXPECT_EQ(device.uuid(), stored);
}
#endif

}  // namespace
}  // namespace orvane
