#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <map>
#include <thread>

#include "support/ChildProcess.h"
#include "support/FaultServer.h"
#include "support/ObjectStore.h"
#include "support/TemporaryDirectory.h"

// The example host as its user meets it: a program, a folder, a configuration file.
namespace orvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
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
  [[nodiscard]] std::string status() const { return run({"status", "--state", state_}).output; }

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
  EXPECT_THAT(backUp().output, HasSubstr("1 files uploaded (7 B), 3 already there, 0 failed"));
  EXPECT_EQ(store.get(store.prefix() + "media/empty.txt"), "no more");
  EXPECT_EQ(status(), "completed: 4\n");
}

TEST_F(BackupHostTest, WrongSecretFailsUntilItIsPutRight) {
  const ObjectStore store;
  addFile("a.jpg", "a");
  configure(store.endpoint(), store.accessKey(), "not-the-secret", store.prefix());
  const Outcome refused = backUp();
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output, AllOf(HasSubstr("failed    a.jpg: HTTP error 403 (check keys"),
                                    HasSubstr("1 failed"), Not(HasSubstr("not-the-secret"))));
  EXPECT_EQ(status(), "failed: 1\n");

  configure(store);
  EXPECT_EQ(backUp().status, 0);
  EXPECT_EQ(status(), "completed: 1\n");
}

TEST_F(BackupHostTest, UnusableConfigurationIsRefused) {
  EXPECT_EQ(backUp().status, 2);  // There is none.
  for (const char* text : {"", "{", "[]", R"({"bucket":"b"})"}) {
    writeFile(config_, text);
    const Outcome refused = backUp();
    EXPECT_EQ(refused.status, 2) << text;
    EXPECT_THAT(refused.output, HasSubstr("config.json must be a JSON object")) << text;
  }
  for (const char* endpoint : {"", "not a URL"}) {
    configure(endpoint);
    const Outcome refused = backUp();
    EXPECT_EQ(refused.status, 2) << endpoint;
    EXPECT_THAT(refused.output, HasSubstr("the endpoint must be a URL")) << endpoint;
  }
  EXPECT_EQ(run({"run"}).status, 2);
  EXPECT_EQ(run({"run", "nowhere", "--config", config_, "--state", state_}).status, 2);
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
  while (!status().contains("completed: 5")) std::this_thread::yield();
  EXPECT_EQ(status(), "uploading: 1\ncompleted: 5\n");
  killed.kill(SIGKILL);
  EXPECT_EQ(killed.wait(), -SIGKILL);

  stalls = false;
  const Outcome second = backUp();
  EXPECT_EQ(second.status, 0);
  EXPECT_THAT(second.output, HasSubstr("1 files uploaded (1 B), 5 already there, 0 failed"));
  EXPECT_EQ(server.requests().size(), 7U);
  EXPECT_EQ(server.requests().back().target(), "/photos/media/b");
  EXPECT_EQ(status(), "completed: 6\n");
}

TEST_F(BackupHostTest, OnlyTransientFailuresAreRetried) {
  FaultServer server;
  configure(server.url());
  addFile("a", "a");
  server.queue(answer(400));
  EXPECT_EQ(backUp().status, 1);
  EXPECT_EQ(server.requests().size(), 1U);

  server.queue(answer(503));
  const Outcome retried = backUp();
  EXPECT_EQ(retried.status, 0);
  EXPECT_THAT(retried.output, HasSubstr("retrying  a in 1 s: HTTP error 503"));
  EXPECT_EQ(server.requests().size(), 3U);
}

TEST_F(BackupHostTest, UnspeakableNamesAreReported) {
  FaultServer server;
  configure(server.url());
  addFile("caf\xE9", "a");
  addFile("esc\x1B[1m", "b");
  const Outcome outcome = backUp();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("failed    caf?: the name is not UTF-8"),
                                    HasSubstr("uploaded  esc?[1m, 1 B")));
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(server.requests()[0].target(), "/photos/media/esc%1B%5B1m");
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
  EXPECT_EQ(server.requests().size(), 8U);
  EXPECT_EQ(status(), "pending: 2\ncompleted: 4\n");
}

}  // namespace
}  // namespace orvane::testing
