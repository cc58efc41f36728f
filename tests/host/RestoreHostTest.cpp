#include "BackupHost.h"

namespace orvane::testing {
namespace {

class RestoreHostTest : public BackupHostTest {
 protected:
  RestoreHostTest() { configure(store_); }

  [[nodiscard]] Outcome restore(std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments = {"restore", restored_, "--config", config_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return with(newState_, arguments);
  }
  /// Content and modification time of every file in a folder.
  static std::map<std::string, std::pair<std::string, fs::file_time_type>> filesIn(
      const fs::path& folder) {
    std::map<std::string, std::pair<std::string, fs::file_time_type>> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (!entry.is_regular_file()) continue;
      files[entry.path().lexically_relative(folder)] = {readFile(entry), entry.last_write_time()};
    }
    return files;
  }

  const ObjectStore store_;
  const fs::path restored_ = testDirectory() / "restored";
  const fs::path newState_ = testDirectory() / "new-state";
};

TEST_F(RestoreHostTest, BringsAFolderBackThatIsBackedUpFromThenOn) {
  addFile("a b+c#d?e%41&'\"\\.txt", "odd");
  addFile("folder/\xC3\xA9.bin", std::string((8 << 20) + 1, 'x'));
  addFile("empty", "");
  fs::last_write_time(folder_ / "empty", fs::file_time_type(std::chrono::nanoseconds(123456789)));
  const auto photos = fs::path(ORVANE_TEST_DATA) / "photos";
  addFile("sky.jpg", readFile(photos / "village.jpg"));
  addFile("wall.jpg", readFile(photos / "brick-wall.jpg"));
  ASSERT_EQ(backUp().status, 0);
  ASSERT_EQ(with(state_, {"tag"}).status, 0);
  ASSERT_EQ(withStore("sync", state_).status, 0);

  EXPECT_THAT(restore({"--tag", "cielo"}).output, HasSubstr("1 file restored ("));
  EXPECT_THAT(restore({"--only", "folder/*"}).output, HasSubstr("1 file restored ("));
  EXPECT_THAT(restore({"--limit", "100MiB"}).output,
              HasSubstr("3 files restored (17.2 KiB), 2 already there, 0 failed"));
  EXPECT_TRUE(filesIn(restored_) == filesIn(folder_));
  const auto next = with(newState_, {"run", restored_, "--config", config_});
  EXPECT_THAT(next.output, HasSubstr("0 files uploaded (0 B), 5 already there, 0 failed"));
  EXPECT_THAT(with(newState_, {"search", "cielo"}).output, HasSubstr("sky.jpg: "));

  writeFile(restored_ / "empty", "no more");
  const auto refused = restore();
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output, HasSubstr("failed    empty: another file is there (--overwrite"));
  EXPECT_EQ(readFile(restored_ / "empty"), "no more");
  EXPECT_EQ(restore({"--overwrite"}).status, 0);
  EXPECT_TRUE(filesIn(restored_) == filesIn(folder_));
}

TEST_F(RestoreHostTest, WritesNowhereElse) {
  const auto outside = testDirectory() / "outside";
  fs::create_directories(outside);
  fs::create_directories(restored_);
  fs::create_directory_symlink(outside, restored_ / "link");
  const std::vector<std::string> bad = {"../x",
                                        "/x",
                                        "a/../x",
                                        "a//x",
                                        "./x",
                                        "link/x",
                                        "dir",
                                        ".orvane-0123456789abcdef.part",
                                        std::string(300, 'n')};
  for (const auto& name : bad) store_.put(store_.prefix() + "media/" + name, "evil", "text/plain");
  store_.put(store_.prefix() + "media/dir/good", "good", "text/plain");
  fs::create_directory(restored_ / "dir");
  const auto outcome = restore({"--overwrite"});
  EXPECT_EQ(outcome.status, 1);
  for (const auto& name : bad) EXPECT_THAT(outcome.output, HasSubstr("failed    " + name + ": "));
  EXPECT_TRUE(fs::is_empty(outside));
  const auto files = filesIn(restored_);
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(files.at("dir/good").first, "good");
}

}  // namespace
}  // namespace orvane::testing
