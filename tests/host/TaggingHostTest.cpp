#include "BackupHost.h"
#include "support/TestImage.h"

namespace orvane::testing {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;

class TaggingHostTest : public BackupHostTest {
 protected:
  enum Motif { sky, nothing };

  void addPhoto(const std::string& name, Motif motif) const {
    static const auto photos =
        std::pair(readFile(photoFolder() / "hill.jpg"), readFile(photoFolder() / "brick-wall.jpg"));
    writeFile(folder_ / name, motif == sky ? photos.first : photos.second);
  }
};

/// The lines that say that a photo was tagged.
std::set<std::string> taggedIn(const std::string& output) {
  std::set<std::string> lines;
  std::istringstream stream(output);
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with("tagged")) lines.insert(line);
  }
  return lines;
}

/// Nobody else can read what the host has stored, and it holds no key.
void expectPrivate(const fs::path& folder, const std::string& key) {
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    SCOPED_TRACE(entry.path());
    const auto all = entry.is_directory() ? fs::perms::owner_all
                                          : fs::perms::owner_read | fs::perms::owner_write;
    EXPECT_EQ(entry.status().permissions(), all);
    if (!entry.is_regular_file()) continue;
    EXPECT_THAT(readFile(entry), ::testing::Not(HasSubstr(key)));
  }
}

TEST_F(TaggingHostTest, KilledTaggingGoesOnWhereItWas) {
  FaultServer server;
  configure(server.url());
  for (int i = 0; i < 200; ++i) addPhoto(std::to_string(i) + ".jpg", i % 2 == 0 ? sky : nothing);
  addFile("notes.txt", "no photo");
  ASSERT_EQ(backUp().status, 0);

  auto killed = start({"tag", "--state", state_});
  const auto firstLine = killed.readLine().value_or("");
  killed.kill(SIGKILL);
  const auto first = taggedIn(firstLine + '\n' + killed.readAll());
  const Outcome rest = with(state_, {"tag"});
  EXPECT_EQ(rest.status, 0);
  EXPECT_THAT(rest.output, HasSubstr("200 of 200 photos looked at"));
  for (const auto& line : taggedIn(rest.output)) EXPECT_FALSE(first.contains(line)) << line;
  EXPECT_THAT(with(state_, {"search", "CIEL"}).output, HasSubstr("100 photos"));

  EXPECT_THAT(with(state_, {"tag"}).output, "200 of 200 photos looked at, 0 of them now\n");
  EXPECT_THAT(with(state_, {"status"}).output, HasSubstr("looked at: 200 of 200 photos"));
  addPhoto("0.jpg", nothing);  // Another photo under this name is looked at when it is backed up.
  ASSERT_EQ(backUp().status, 0);
  EXPECT_THAT(with(state_, {"tag"}).output, HasSubstr("looked at, 1 of them now"));
  fs::rename(folder_, testDirectory() / "moved");
  EXPECT_EQ(with(state_, {"tag"}).status, 2);
  EXPECT_THAT(with(state_, {"tag", "--again", testDirectory() / "moved"}).output,
              HasSubstr("looked at, 200 of them now"));
}

TEST_F(TaggingHostTest, AnotherDeviceFindsThePhotosAfterSync) {
  const ObjectStore store;
  umask(0);
  configure(store);
  addPhoto("you & me <3.jpg", sky);
  addPhoto("wall.jpg", nothing);
  const fs::path other = testDirectory() / "other device";
  ASSERT_EQ(with(other, {"run", folder_, "--config", config_}).status, 0);
  ASSERT_EQ(backUp().status, 0);
  EXPECT_EQ(withStore("sync", other).status, 0) << "nobody has published anything yet";

  ASSERT_EQ(with(state_, {"tag"}).status, 0);
  EXPECT_EQ(withStore("sync", state_).status, 0);
  EXPECT_EQ(withStore("sync", other).status, 0);
  const Outcome found = with(other, {"search", "cielo"});
  EXPECT_EQ(found.output, with(state_, {"search", "cielo"}).output);
  EXPECT_THAT(found.output, AllOf(HasSubstr("you & me <3.jpg: "), HasSubstr("1 photo\n")));
  EXPECT_THAT(with(other, {"top"}).output, ContainsRegex("cielo .*█ 1\n"));
  EXPECT_THAT(with(other, {"tags", "you & me <3.jpg"}).output, HasSubstr("cielo"));
  EXPECT_EQ(with(other, {"tags", "wall.jpg"}).output, "no tags\n");
  EXPECT_THAT(with(other, {"tags", "nothing"}).output, HasSubstr("no such photo: nothing"));
  EXPECT_EQ(withStore("verify", other).status, 0);
  expectPrivate(other, store.secretKey());

  fs::remove_all(state_ / "Documents");  // The own tags come back from the bucket.
  EXPECT_THAT(withStore("sync", state_).output, HasSubstr("Restored"));
  EXPECT_THAT(with(state_, {"search", "cielo"}).output, HasSubstr("1 photo\n"));
  fs::remove_all(state_ / "Documents");  // Or are found again, lest too few of them be published.
  addPhoto("new.jpg", sky);
  ASSERT_EQ(backUp().status, 0);
  EXPECT_THAT(with(state_, {"tag"}).output, HasSubstr("3 photos looked at, 3 of them now"));
  EXPECT_THAT(withStore("sync", state_).output, HasSubstr("Published the tags of 2 photos"));
  fs::remove(config_);
  EXPECT_EQ(withStore("sync", state_).status, 2);
}

}  // namespace
}  // namespace orvane::testing
