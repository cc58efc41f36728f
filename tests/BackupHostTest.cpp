#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/platform/SceneClassifier.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "support/ChildProcess.h"
#include "support/FaultServer.h"
#include "support/ObjectStore.h"
#include "support/SceneImages.h"
#include "support/SecretService.h"
#include "support/TemporaryDirectory.h"
#include "support/TestImage.h"

// The example host as its user meets it: a program, a folder, a configuration file.
namespace orvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

struct Outcome {
  int status;
  std::string output;
};

/// Starts the program in the test's folder; standard error joins its output.
ChildProcess start(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"sh", "-c", "exec \"$@\" 2>&1", "sh", ORVANE_BACKUP};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return ChildProcess::start(command);
}

Outcome run(const std::vector<std::string>& arguments) {
  auto child = start(arguments);
  auto output = child.readAll();
  return {child.wait(), std::move(output)};
}

std::size_t uploadsTo(const FaultServer& server) {
  return static_cast<std::size_t>(std::ranges::count_if(
      server.requests(), [](const auto& request) { return request.method() == "PUT"; }));
}

class BackupHostTest : public ::testing::Test {
 protected:
  BackupHostTest() { fs::create_directory(folder_); }

  void addFile(const std::string& name, std::string_view content) const {
    fs::create_directories((folder_ / name).parent_path());
    writeFile(folder_ / name, content);
  }

  void configure(const std::string& endpoint, const std::string& accessKey = "key",
                 const std::string& secretKey = "top-secret",
                 const std::string& prefix = "") const {
    writeFile(config_, R"({"bucket":"photos","region":"us-east-1","accessKey":")" + accessKey +
                           R"(","secretKey":")" + secretKey + R"(","prefix":")" + prefix +
                           R"(","endpoint":")" + endpoint + "\"}");
  }
  void configure(const ObjectStore& store) const {
    configure(store.endpoint(), store.accessKey(), store.secretKey(), store.prefix());
  }

  [[nodiscard]] std::vector<std::string> runArguments() const {
    return {"run", folder_, "--config", config_, "--state", state_};
  }
  [[nodiscard]] Outcome backUp() const { return run(runArguments()); }
  [[nodiscard]] static Outcome with(const fs::path& state, std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--state", state});
    return run(arguments);
  }
  [[nodiscard]] Outcome withStore(const std::string& command, const fs::path& state) const {
    return with(state, {command, "--config", config_});
  }
  /// How many records are in which state.
  [[nodiscard]] std::string status() const {
    const auto output = run({"status", "--state", state_}).output;
    return output.substr(0, output.find("transferred: "));
  }

  const fs::path folder_ = testDirectory() / "folder";
  const fs::path config_ = testDirectory() / "config.json";
  const fs::path state_ = testDirectory() / "state";
};

TEST_F(BackupHostTest, SendsWhatIsNewOrChanged) {
  const ObjectStore store;
  configure(store);
  const std::map<std::string, std::string> files = {
      {"a b+c#d?e%41&'\"\\.JPG", "odd"},
      {"empty.txt", ""},
      {"folder/\xC3\xA9\xE5\xA4\x8F.bin", "deep"},
      {"large.mov", std::string(8 * 1024 * 1024 + 1, 'x')}};
  for (const auto& [name, content] : files) addFile(name, content);
  fs::create_symlink("large.mov", folder_ / "link");

  const Outcome first = backUp();
  EXPECT_EQ(first.status, 0) << first.output;
  std::map<std::string, std::string> stored;
  for (const auto& object : store.list(store.prefix())) {
    stored[object.key.substr((store.prefix() + "media/").size())] = store.get(object.key).value();
  }
  EXPECT_TRUE(stored == files);  // Not EXPECT_EQ: it would print 8 MiB.
  EXPECT_EQ(store.head(store.prefix() + "media/a b+c#d?e%41&'\"\\.JPG")->contentType, "image/jpeg");

  EXPECT_THAT(backUp().output, HasSubstr("0 files uploaded (0 B), 4 already there, 0 failed"));
  addFile("empty.txt", "no more");
  EXPECT_THAT(backUp().output, HasSubstr("1 file uploaded (7 B), 3 already there, 0 failed"));
  EXPECT_EQ(store.get(store.prefix() + "media/empty.txt"), "no more");
  EXPECT_EQ(status(), "completed: 4\n");
  EXPECT_THAT(with(state_, {"status"}).output, ContainsRegex("lately ([▁▂▃▄▅▆▇█]{3})+ .at most"));
}

TEST_F(BackupHostTest, WrongSecretFailsUntilItIsPutRight) {
  const ObjectStore store;
  for (const char* name : {"a.jpg", "b", "c", "d", "e", "f", "g", "h", "i"}) addFile(name, name);
  configure(store.endpoint(), store.accessKey(), "not-the-secret", store.prefix());
  const Outcome refused = backUp();
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output, AllOf(HasSubstr("failed    a.jpg: HTTP error 403 (check keys"),
                                    HasSubstr("Given up, since every file would fail: "),
                                    Not(HasSubstr("    i: ")), Not(HasSubstr("not-the-secret"))));
  for (const char* command : {"verify", "sync"}) {
    const Outcome outcome = withStore(command, state_);
    EXPECT_EQ(outcome.status, 1) << outcome.output;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("HTTP"), HasSubstr("403"), Not(HasSubstr("<"))));
  }
  configure(store);
  EXPECT_EQ(backUp().status, 0);
  EXPECT_EQ(status(), "completed: 9\n");
}

TEST_F(BackupHostTest, StateServesOneFolderAndOneStore) {
  FaultServer server;
  addFile("a", "a");
  addFile("state/b", "no backup of what is changing meanwhile");
  configure(server.url(), "key", "secret", "typo/");
  server.queue(answer(400));
  const fs::path state = folder_ / "state";
  const auto backUpTo = [&](const fs::path& folder) {
    return with(state, {"run", folder, "--config", config_});
  };
  EXPECT_EQ(backUpTo(folder_).status, 1);  // Nothing is anywhere yet, so nothing is mixed up.
  configure(server.url(), "key", "secret", "right/");
  EXPECT_EQ(backUpTo(folder_).status, 0);
  ASSERT_EQ(uploadsTo(server), 2U);
  EXPECT_EQ(backUpTo(folder_ / ".").status, 0);
  fs::create_directory(testDirectory() / "other");
  EXPECT_EQ(backUpTo(testDirectory() / "other").status, 2);

  for (const char* prefix : {"", "left/"}) {
    configure(server.url(), "key", "secret", prefix);
    for (const char* command : {"verify", "sync"}) {
      EXPECT_EQ(withStore(command, state).status, 2) << command;
    }
    const Outcome refused = backUpTo(folder_);
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.output, AllOf(HasSubstr("/photos/right/, not to "),
                                      HasSubstr("Application Support\" to start over")));
  }
  EXPECT_EQ(uploadsTo(server), 2U);
}

TEST_F(BackupHostTest, OneCommandAtATimeChangesAState) {
  const Gate gate;
  FaultServer server([&](const RecordedRequest&) {
    return Reaction{.answer = answerText(200), .sendHold = Reaction::Hold{.at = 0, .gate = gate}};
  });
  configure(server.url());
  addFile("a.jpg", "no photo");
  auto first = start(runArguments());
  server.waitForRequests(1);
  for (const Outcome& second :
       {backUp(), with(state_, {"tag"}), withStore("sync", state_), withStore("verify", state_)}) {
    EXPECT_EQ(second.status, 2);
    EXPECT_THAT(second.output, HasSubstr("another orvane-backup is at work"));
  }
  EXPECT_EQ(status(), "uploading: 1\n");
  gate.open();
  EXPECT_EQ(first.wait(), 0);
  const Outcome tagged = with(state_, {"tag"});
  EXPECT_EQ(tagged.status, 0);
  EXPECT_THAT(tagged.output, HasSubstr("Vision classify failed: "));
}

TEST_F(BackupHostTest, UnusableConfigurationIsRefused) {
  EXPECT_EQ(backUp().status, 2);  // There is none.
  for (const char* text : {"", "{", "[]", R"({"bucket":"b"})"}) {
    writeFile(config_, text);
    const Outcome refused = backUp();
    EXPECT_EQ(refused.status, 2) << text;
    EXPECT_THAT(refused.output, HasSubstr("config.json must be a JSON object")) << text;
  }
  for (const char* endpoint : {"", "not a URL", "ftp://x", "http://", "http://h:99999", "h:1"}) {
    configure(endpoint);
    const Outcome refused = backUp();
    EXPECT_EQ(refused.status, 2) << endpoint;
    EXPECT_THAT(refused.output, HasSubstr("the endpoint must be a URL")) << endpoint;
  }
  for (const char* prefix : {"a b/", "\u00e8/", "a<b/", "a+b/", "a&b/", "50%/"}) {
    configure("http://127.0.0.1:1", "key", "secret", prefix);
    EXPECT_THAT(backUp().output, HasSubstr("the prefix may hold")) << prefix;
  }
  configure("http://127.0.0.1:1");
  const std::vector<std::string> wrong[] = {
      {"run"}, {"statsu"}, {}, {"run", "nowhere", "--config", config_}, {"tag", "nowhere"}};
  for (const auto& arguments : wrong) {
    const Outcome outcome = with(state_, arguments);
    EXPECT_EQ(outcome.status, 2) << outcome.output;
    EXPECT_THAT(outcome.output, Not(HasSubstr("subcommand")));
  }
  EXPECT_EQ(run({"--state", state_, "status"}).output, "no records yet\n");
}

TEST_F(BackupHostTest, KilledRunIsContinued) {
  std::atomic<bool> stalls = true;
  FaultServer server([&](const RecordedRequest& request) {
    const bool held = stalls && request.target() == "/photos/media/b";
    return held ? stallAfter(0) : answer(200);
  });
  configure(server.url());
  for (const char* name : {"a", "b", "c", "d", "e", "f"}) addFile(name, name);
  auto killed = start(runArguments());
  for (int uploaded = 0; uploaded < 5;) {
    if (killed.readLine().value().starts_with("uploaded")) ++uploaded;
  }
  while (!status().contains("completed: 5")) std::this_thread::yield();
  EXPECT_EQ(status(), "uploading: 1\ncompleted: 5\n");
  killed.kill(SIGKILL);
  EXPECT_EQ(killed.wait(), -SIGKILL);

  stalls = false;
  const Outcome second = backUp();
  EXPECT_EQ(second.status, 0);
  EXPECT_THAT(second.output, HasSubstr("1 file uploaded (1 B), 5 already there, 0 failed"));
  EXPECT_EQ(uploadsTo(server), 7U);
  EXPECT_EQ(status(), "completed: 6\n");
}

TEST_F(BackupHostTest, OnlyTransientFailuresAreRetried) {
  const fs::path other = testDirectory() / "offline";
  for (const char* name : {"1", "2", "3", "4", "5"}) addFile("../offline/" + std::string(name), "");
  configure("http://127.0.0.1:1");
  auto offline = start({"run", other, "--config", config_, "--state", other / "state"});
  ASSERT_THAT(offline.readLine().value_or(""),
              HasSubstr("Backing up"));  // It has read all it needs.

  FaultServer server([](const RecordedRequest& request) {
    return answer(request.target() == "/photos/media/b" ? 503 : 200);
  });
  configure(server.url());
  addFile("a", "a");
  server.queue(answer(400));
  EXPECT_EQ(backUp().status, 1);
  EXPECT_EQ(uploadsTo(server), 1U);

  addFile("b", "b");
  const Outcome retried = backUp();
  EXPECT_EQ(retried.status, 1);
  EXPECT_THAT(retried.output, AllOf(ContainsRegex("retrying  b in [23].[0-9] s: HTTP error 503"),
                                    HasSubstr("failed    b: HTTP error 503")));
  EXPECT_EQ(uploadsTo(server), 1U + 1U + 4U);  // Once, and three times more in one run.
  EXPECT_THAT(offline.readAll(), HasSubstr("every file would fail: 1 file left"));
  EXPECT_EQ(offline.wait(), 1);
  EXPECT_THAT(readFile(other / "state/Application Support/upload_records_v1.json"),
              Not(ContainsRegex("\"retryCount\":[1-9]")));
}

TEST_F(BackupHostTest, RetriesOfALifetimeAreLimited) {
  FaultServer server;
  configure(server.url());
  addFile("a", "a");
  server.queue(answer(400));
  EXPECT_EQ(backUp().status, 1);
  const auto records = state_ / "Application Support/upload_records_v1.json";
  std::string text = readFile(records);
  const std::string none = "\"retryCount\":0";
  writeFile(records, text.replace(text.find(none), none.size(), "\"retryCount\":14"));

  for (int i = 0; i < 2; ++i) server.queue(answer(503));
  EXPECT_EQ(backUp().status, 1);
  EXPECT_EQ(uploadsTo(server), 3U);
  const Outcome givenUp = backUp();
  EXPECT_EQ(givenUp.status, 1);
  EXPECT_THAT(givenUp.output, HasSubstr("failed    a: given up after 15 retries"));
  EXPECT_EQ(uploadsTo(server), 3U);

  auto arguments = runArguments();
  arguments.emplace_back("--retry-all");
  EXPECT_EQ(run(arguments).status, 0);
}

TEST_F(BackupHostTest, UnspeakableNamesAreReported) {
  FaultServer server;
  configure(server.url());
  addFile("caf\xE9", "a");
  addFile("esc\x1B[1m", "b");
  addFile("\u202Egpj.\u0085", "c");
  const Outcome outcome = backUp();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output,
              AllOf(HasSubstr("failed    caf?: the name is not UTF-8"),
                    HasSubstr("uploaded  esc?[1m, 1 B"), HasSubstr("uploaded  ?gpj.?, 1 B")));
  std::set<std::string> targets;
  for (const auto& request : server.requests()) targets.insert(request.target());
  EXPECT_TRUE(targets.contains("/photos/media/esc%1B%5B1m"));
  EXPECT_TRUE(targets.contains("/photos/media/%E2%80%AEgpj.%C2%85"));
}

TEST_F(BackupHostTest, FirstSignalWaitsForUploadsUnderWay) {
  const Gate gate;
  FaultServer server([&](const RecordedRequest&) {
    return Reaction{.answer = answerText(200), .sendHold = Reaction::Hold{.at = 0, .gate = gate}};
  });
  configure(server.url());
  for (const char* name : {"a", "b", "c", "d", "e", "f"}) addFile(name, name);
  const auto interrupted = [&] {
    auto child = start(runArguments());
    server.waitForRequests(server.requests().size() + 4);
    child.kill(SIGINT);
    while (!child.readLine().value_or("stopping").starts_with("stopping")) {
    }
    return child;
  };

  auto twice = interrupted();
  twice.kill(SIGTERM);
  EXPECT_EQ(twice.wait(), 130);

  auto once = interrupted();
  gate.open();
  EXPECT_THAT(once.readAll(), HasSubstr("Stopped: 2 files left for the next run."));
  EXPECT_EQ(once.wait(), 130);
  EXPECT_EQ(uploadsTo(server), 8U);
  EXPECT_EQ(status(), "pending: 2\ncompleted: 4\n");
}

TEST_F(BackupHostTest, VerifyTellsWhatTheStoreHasLostAndRepairsIt) {
  const ObjectStore store;
  configure(store);
  const std::string media = store.prefix() + "media/";
  for (const char* name : {"kept & <dear>", "lost", "overwritten", "two\nlines"})
    addFile(name, name);
  ASSERT_EQ(backUp().status, 0);
  EXPECT_EQ(withStore("verify", state_).output,
            "unlisted  two?lines\n3 objects as recorded, 0 missing, 0 changed, 0 unknown, "
            "1 unlisted (stores list no name with a line break)\n");

  store.put(media + "stranger", "?", "text/plain");
  EXPECT_EQ(withStore("verify", state_).status, 0);
  store.remove(media + "lost");
  store.put(media + "overwritten", "by somebody", "text/plain");
  const Outcome verified = withStore("verify", state_);
  EXPECT_EQ(verified.status, 1);
  EXPECT_THAT(verified.output,
              AllOf(HasSubstr("missing   lost\nchanged   overwritten\nunknown   media/stranger\n"
                              "unlisted  two?lines\n1 object as recorded, 1 missing, 1 changed, "
                              "1 unknown, 1 unlisted"),
                    HasSubstr("; verify --repair lets the next run send them again")));
  EXPECT_EQ(with(state_, {"verify", "--repair", "--config", config_}).status, 1);
  EXPECT_THAT(backUp().output, HasSubstr("2 files uploaded"));
  EXPECT_EQ(withStore("verify", state_).status, 0);
  EXPECT_EQ(store.get(media + "lost").value() + store.get(media + "overwritten").value(),
            "lostoverwritten");
}

bool showsSky(const fs::path& photo) {
  const auto seen = SceneClassifier().classify(photo).value();
  return std::ranges::any_of(seen, [](const ClassificationObservation& one) {
    return one.identifier == "sky" && one.confidence >= 0.7F;
  });
}

class TaggingHostTest : public BackupHostTest {
 protected:
  enum Motif { sky, nothing };

  void addPhoto(const std::string& name, Motif motif) const {
    static const auto photos = std::pair(paintedSky(), painted(distractors(), "flat colour", 1));
    writeFile(folder_ / name, motif == sky ? photos.first : photos.second);
  }

 private:
  static std::string painted(std::span<const SceneKind> kinds, std::string_view name,
                             std::uint32_t seed) {
    const fs::path file = testDirectory() / "painted.png";
    writeImage(file, paint(*std::ranges::find(kinds, name, &SceneKind::name), seed));
    return readFile(file);
  }
  /// Of the painted skies, the first one that the built-in classifier is sure of.
  static std::string paintedSky() {
    for (std::uint32_t seed = 1;; ++seed) {
      auto photo = painted(scenes(), "cumulus", seed);
      if (showsSky(testDirectory() / "painted.png")) return photo;
    }
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

TEST_F(TaggingHostTest, KilledTaggingGoesOnWhereItWas) {
  FaultServer server;
  configure(server.url());
  for (int i = 0; i < 200; ++i) addPhoto(std::to_string(i) + ".png", i % 2 == 0 ? sky : nothing);
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
  addPhoto("0.png", nothing);  // Another photo under this name is looked at when it is backed up.
  ASSERT_EQ(backUp().status, 0);
  EXPECT_THAT(with(state_, {"tag"}).output, HasSubstr("looked at, 1 of them now"));
  fs::rename(folder_, testDirectory() / "moved");
  EXPECT_EQ(with(state_, {"tag"}).status, 2);
  EXPECT_THAT(with(state_, {"tag", "--again", testDirectory() / "moved"}).output,
              HasSubstr("looked at, 200 of them now"));
}

TEST_F(TaggingHostTest, AnotherDeviceFindsThePhotosAfterSync) {
  const ObjectStore store;
  configure(store);
  addPhoto("you & me <3.png", sky);
  addPhoto("wall.png", nothing);
  const fs::path other = testDirectory() / "other device";
  ASSERT_EQ(with(other, {"run", folder_, "--config", config_}).status, 0);
  ASSERT_EQ(backUp().status, 0);
  EXPECT_EQ(withStore("sync", other).status, 0) << "nobody has published anything yet";

  ASSERT_EQ(with(state_, {"tag"}).status, 0);
  EXPECT_EQ(withStore("sync", state_).status, 0);
  EXPECT_EQ(withStore("sync", other).status, 0);
  const Outcome found = with(other, {"search", "cielo"});
  EXPECT_EQ(found.output, with(state_, {"search", "cielo"}).output);
  EXPECT_THAT(found.output, AllOf(HasSubstr("you & me <3.png: "), HasSubstr("1 photo\n")));
  EXPECT_THAT(with(other, {"top"}).output, ContainsRegex("cielo .*█ 1\n"));
  EXPECT_THAT(with(other, {"tags", "you & me <3.png"}).output, HasSubstr("cielo"));
  EXPECT_EQ(with(other, {"tags", "wall.png"}).output, "no tags\n");
  EXPECT_THAT(with(other, {"tags", "nothing"}).output, HasSubstr("no such photo: nothing"));
  EXPECT_EQ(withStore("verify", other).status, 0);

  fs::remove_all(state_ / "Documents");  // The own tags come back from the bucket.
  EXPECT_THAT(withStore("sync", state_).output, HasSubstr("Restored"));
  EXPECT_THAT(with(state_, {"search", "cielo"}).output, HasSubstr("1 photo\n"));
  fs::remove_all(state_ / "Documents");  // Or are found again, lest too few of them be published.
  addPhoto("new.png", sky);
  ASSERT_EQ(backUp().status, 0);
  EXPECT_THAT(with(state_, {"tag"}).output, HasSubstr("3 photos looked at, 3 of them now"));
  EXPECT_THAT(withStore("sync", state_).output, HasSubstr("Published the tags of 2 photos"));
  fs::remove(config_);
  EXPECT_EQ(withStore("sync", state_).status, 2);
}

TEST_F(TaggingHostTest, KeyringHoldsTheIdentityWhenItIsThere) {
  FaultServer server;
  configure(server.url());
  addPhoto("a.png", sky);
  ASSERT_EQ(backUp().status, 0);
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere", 1);
  EXPECT_EQ(with(state_, {"tag", "--keyring"}).status, 2);
  writeFile(state_ / "Secrets", "no folder");
  for (const Outcome& unusable : {with(state_, {"tag"}), withStore("sync", state_)}) {
    EXPECT_EQ(unusable.status, 2);
    EXPECT_THAT(unusable.output, HasSubstr("the device's identity: "));
  }
  fs::remove(state_ / "Secrets");
#ifdef ORVANE_WITH_SECRET_SERVICE
  const SessionBus bus;
  const SecretService service;
  EXPECT_EQ(with(state_, {"tag", "--keyring"}).status, 0);
  EXPECT_FALSE(fs::exists(state_ / "Secrets"));
#endif
}

}  // namespace
}  // namespace orvane::testing
