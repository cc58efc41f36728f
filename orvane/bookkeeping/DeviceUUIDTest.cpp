#include <orvane/bookkeeping/DeviceUUID.h>

#include "support/OtherUser.h"
#include "support/Test.h"

namespace orvane {
namespace {

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

/// What as many processes say that ask at the same time.
std::set<std::string> answersOf(int processes) {
  std::vector<ChildProcess> children;
  for (int i = 0; i < processes; ++i) children.push_back(ChildProcess::run("device-uuid"));
  std::set<std::string> answers;
  for (auto& child : children) answers.insert(child.readAll());
  return answers;
}

TEST(DeviceUUID, IsMadeOnceAndKept) {
  const auto first = uuid();
  EXPECT_THAT(first, MatchesRegex(kForm));
  EXPECT_EQ(readFile(itemFile()), first);
  EXPECT_THAT(answersOf(1), ElementsAre(first + "\n" + first + "\n"));
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
  for (const int code : {EISDIR, -25291}) {
    if (code == EISDIR) {
      fs::create_directories(itemFile());
    } else {
      unsetenv("XDG_DATA_HOME");
      unsetenv("HOME");
    }
    const auto output = outputOfChild("device-uuid");
    const auto first = output.substr(output.size() - 37);
    EXPECT_EQ(output, "Keychain save error: " + std::to_string(code) + '\n' + first + first);
    EXPECT_THAT(first, MatchesRegex(kForm + "\n"s));
    EXPECT_NE(outputOfChild("device-uuid"), output);
  }
}

TEST(DeviceUUID, IsOneForProcessesThatAskAtOnce) {
  for (int round = 0; round < 20; ++round) {
    fs::remove(itemFile());
    EXPECT_EQ(answersOf(4).size(), 1U) << "round " << round;
  }
}

TEST(DeviceUUID, IsOneWhateverAnotherUserHasLeft) {
  if (!testing::OtherUser::isPossible()) GTEST_SKIP() << "needs root";
  const testing::OtherUser user;
  const auto folder = itemFile().parent_path();
  fs::create_directories(folder);
  for (const auto& path : {folder, folder.parent_path(), folder.parent_path().parent_path()}) {
    ASSERT_EQ(chown(path.c_str(), testing::OtherUser::kId, 0), 0);
  }
  for (const auto& left : {folder.parent_path() / ".lock", folder / ".device_uuid_v1.secret.tmp"}) {
    writeFile(left, "of root");
    fs::permissions(left, fs::perms::none);
  }
  EXPECT_EQ(answersOf(8).size(), 1U);
  EXPECT_EQ(*answersOf(1).begin(), readFile(itemFile()) + "\n" + readFile(itemFile()) + "\n");
}

}  // namespace
}  // namespace orvane
