#include <orvane/bookkeeping/DeviceUUID.h>

#include "support/ChildProcess.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace orvane {
namespace {

using orvane::testing::outputOfChild;
using ::testing::MatchesRegex;
using namespace std::string_literals;

constexpr const char* kForm = "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}";

std::filesystem::path itemFile() {
  return orvane::testing::testDirectory() / "data/org.orvane.engine/Secrets" /
         "device_uuid_v1.secret";
}

std::string uuid() { return DeviceUUID::shared().uuid(); }

/// The identifier when it is looked for in the store anew.
std::string uuidReadAgain() {
  DeviceUUID::shared().resetForTesting();
  return uuid();
}

/// Says the identifier twice and ends without writing what standard output still holds.
const testing::ChildMain kAsker("device-uuid", [](const auto&) {
  for (int i = 0; i < 2; ++i) {
    const auto line = uuid() + "\n";
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0) return 1;
  }
  _exit(0);
});

TEST(DeviceUUID, IsMadeOnceAndKept) {
  const auto first = uuid();
  EXPECT_THAT(first, MatchesRegex(kForm));
  EXPECT_EQ(testing::readFile(itemFile()), first);
  EXPECT_EQ(outputOfChild("device-uuid"), first + "\n" + first + "\n");
  EXPECT_EQ(uuidReadAgain(), first);

  testing::writeFile(itemFile(), "changed");
  EXPECT_EQ(uuid(), first);
  std::filesystem::remove(itemFile());
  EXPECT_EQ(uuid(), first);
  EXPECT_NE(uuidReadAgain(), first);
}

TEST(DeviceUUID, TakesAnyStoredText) {
  for (const auto& text :
       {"not a UUID"s, "6f1c2a90-3b7d-4e21-9c55-0a8e7b3d2f14"s, ""s, " \u00e8\n"s, "a\0b"s}) {
    testing::writeFile(itemFile(), text);
    EXPECT_EQ(uuidReadAgain(), text);
    EXPECT_EQ(testing::readFile(itemFile()), text);
  }
  testing::writeFile(itemFile(), "\xff not UTF-8");
  EXPECT_THAT(uuidReadAgain(), MatchesRegex(kForm));
  EXPECT_EQ(testing::readFile(itemFile()), uuid());
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

/// What as many processes say that ask at the same time.
std::set<std::string> answersOf(int processes) {
  std::vector<testing::ChildProcess> children;
  for (int i = 0; i < processes; ++i) {
    children.push_back(testing::ChildProcess::run("device-uuid"));
  }
  std::set<std::string> answers;
  for (auto& child : children) answers.insert(child.readAll());
  return answers;
}

TEST(DeviceUUID, IsOneForProcessesThatAskAtOnce) {
  for (int round = 0; round < 20; ++round) {
    std::filesystem::remove(itemFile());
    EXPECT_EQ(answersOf(4).size(), 1U) << "round " << round;
  }
}

TEST(DeviceUUID, IsOneWhateverAnotherUserHasLeft) {
  if (!testing::OtherUser::isPossible()) GTEST_SKIP() << "needs root";
  const testing::OtherUser user;
  const auto folder = itemFile().parent_path();
  std::filesystem::create_directories(folder);
  for (const auto& path : {folder, folder.parent_path(), folder.parent_path().parent_path()}) {
    ASSERT_EQ(chown(path.c_str(), testing::OtherUser::kId, 0), 0);
  }
  for (const auto& left : {folder.parent_path() / ".lock", folder / ".device_uuid_v1.secret.tmp"}) {
    testing::writeFile(left, "of root");
    std::filesystem::permissions(left, std::filesystem::perms::none);
  }
  EXPECT_EQ(answersOf(8).size(), 1U);
  EXPECT_EQ(*answersOf(1).begin(),
            testing::readFile(itemFile()) + "\n" + testing::readFile(itemFile()) + "\n");
}

}  // namespace
}  // namespace orvane
