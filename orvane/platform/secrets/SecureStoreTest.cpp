#include <orvane/platform/secrets/FileSecureStore.h>
#include <orvane/platform/secrets/SecretServiceStore.h>

#include "support/ChildProcess.h"
#include "support/OtherUser.h"
#include "support/SecretService.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/fsuid.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#ifdef ORVANE_WITH_SECRET_SERVICE
#include <libsecret/secret.h>
#endif

namespace orvane {
namespace {

namespace fs = std::filesystem;
using orvane::testing::ChildMain;
using orvane::testing::testDirectory;
using namespace std::string_literals;

constexpr int kUnavailable = static_cast<int>(SecureStoreErrorCode::unavailable);
constexpr int kNeedsUser = static_cast<int>(SecureStoreErrorCode::needsUser);

constexpr const char* kApplication = "org.example.host";

fs::path folder() { return testDirectory() / "data/Secrets"; }

std::unique_ptr<SecureStore> makeStore(const std::string& kind) {
  if (kind == "file") return std::make_unique<FileSecureStore>(folder());
  return std::make_unique<SecretServiceStore>(kApplication);
}

/// What a store says, in a form that can be compared and printed.
std::string contentOf(SecureStore& store, const std::string& account) {
  const auto item = store.read(account);
  if (!item) return "error " + std::to_string(item.error().code());
  return *item ? "item " + std::string(textOf(**item)) : "missing";
}

std::int64_t codeOfReplacing(SecureStore& store, const std::string& account) {
  const auto replaced = store.replace(account, bytesOf("new"));
  return replaced ? 0 : replaced.error().code();
}

const ChildMain kReader("secure-store-read", [](const std::vector<std::string>& arguments) {
  const auto store = makeStore(arguments[0]);
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const auto content = contentOf(*store, arguments[i]);
    std::fwrite(content.data(), 1, content.size(), stdout);
  }
  return 0;
});

class AnySecureStore : public ::testing::TestWithParam<std::string> {
 protected:
  AnySecureStore() {
    if (GetParam() == "file") return;
    bus_.emplace();
    service_.emplace();
  }

  /// Looks from here and from another process.
  void expectContents(const std::map<std::string, std::string>& expected) {
    std::vector<std::string> arguments = {GetParam()};
    std::string all;
    for (const auto& [account, content] : expected) {
      EXPECT_EQ(contentOf(*store_, account), content) << account;
      arguments.push_back(account);
      all += content;
    }
    EXPECT_EQ(testing::outputOfChild("secure-store-read", arguments), all);
  }

  std::optional<testing::SessionBus> bus_;
  std::optional<testing::SecretService> service_;
  std::unique_ptr<SecureStore> store_ = makeStore(GetParam());
};

TEST_P(AnySecureStore, KeepsOneItemPerAccount) {
  std::string everyByte;
  for (int byte = 0; byte < 256; ++byte) everyByte += static_cast<char>(byte);
  std::map<std::string, std::string> contents;
  for (const auto& [account, data] :
       std::vector<std::pair<std::string, std::string>>{{"plain", "value"},
                                                        {"Plain", "other case"},
                                                        {"empty", ""},
                                                        {"nul", "\0"s},
                                                        {"binary", everyByte},
                                                        {"long", std::string(100'000, 'x')},
                                                        {"", "no name"},
                                                        {"..", "dots"},
                                                        {"../../outside", "a"},
                                                        {"a/b %2F\n", "b"},
                                                        {"\u00e8 'q\"", "c"}}) {
    EXPECT_EQ(contentOf(*store_, account), "missing") << account;
    ASSERT_TRUE(store_->replace(account, bytesOf(data))) << account;
    contents[account] = "item " + data;
  }
  contents["other"] = "missing";
  expectContents(contents);

  ASSERT_TRUE(store_->replace("plain", bytesOf("second")));
  ASSERT_TRUE(makeStore(GetParam())->replace("binary", {}));
  contents["plain"] = "item second";
  contents["binary"] = "item ";
  expectContents(contents);
}

TEST_P(AnySecureStore, ServesManyThreads) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([this, i] {
      EXPECT_TRUE(store_->replace("account", bytesOf("value")));
      EXPECT_EQ(contentOf(*store_, "account"), "item value");
      EXPECT_EQ(contentOf(*store_, std::to_string(i)), "missing");
    });
  }
  threads.clear();
  if (service_) {
    EXPECT_EQ(service_->countItems("account"), 1U);
  }
}

TEST(FileSecureStore, LetsOnlyTheUserIn) {
  const auto modeOf = [](const fs::path& path) { return fs::status(path).permissions(); };
  umask(0);
  FileSecureStore store(folder());
  ASSERT_TRUE(store.replace("../a", bytesOf("secret")));
  EXPECT_EQ(modeOf(folder()), fs::perms::owner_all);
  const fs::path file = fs::directory_iterator(folder())->path();
  EXPECT_EQ(modeOf(file), fs::perms::owner_read | fs::perms::owner_write);

  fs::permissions(folder(), fs::perms::all);
  EXPECT_EQ(contentOf(store, "../a"), "item secret");
  EXPECT_EQ(modeOf(folder()), fs::perms::owner_all);
  fs::permissions(folder(), fs::perms::all);
  fs::permissions(file, fs::perms::all);
  ASSERT_TRUE(store.replace("../a", bytesOf("secret")));
  EXPECT_EQ(modeOf(folder()), fs::perms::owner_all);
  EXPECT_EQ(modeOf(file), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder()), {}), 1);
}

TEST(FileSecureStore, TrustsNothingOfAnotherUser) {
  if (!testing::OtherUser::isPossible()) GTEST_SKIP() << "needs root";
  const auto refused = "error " + std::to_string(EPERM);
  FileSecureStore store(folder());
  testing::writeFile(folder() / "a.secret", "planted");
  fs::permissions(folder(), fs::perms::owner_all);
  ASSERT_EQ(chown(folder().c_str(), testing::OtherUser::kId, 0), 0);
  EXPECT_EQ(contentOf(store, "a"), refused);
  EXPECT_EQ(codeOfReplacing(store, "a"), EPERM);
  EXPECT_EQ(testing::readFile(folder() / "a.secret"), "planted");

  ASSERT_EQ(chown(folder().c_str(), 0, 0), 0);
  ASSERT_EQ(chown((folder() / "a.secret").c_str(), testing::OtherUser::kId, 0), 0);
  EXPECT_EQ(contentOf(store, "a"), refused);
  EXPECT_EQ(codeOfReplacing(store, "a"), 0);
  EXPECT_EQ(contentOf(store, "a"), "item new");

  // With the access of another user the mode cannot be changed.
  for (auto path = folder(); path != testDirectory().parent_path(); path = path.parent_path()) {
    fs::permissions(path, fs::perms::all);
  }
  const auto own = static_cast<uid_t>(setfsuid(testing::OtherUser::kId));
  const auto content = contentOf(store, "b");
  const auto code = codeOfReplacing(store, "b");
  setfsuid(own);
  prctl(PR_SET_DUMPABLE, 1);  // For the leak check.
  EXPECT_EQ(content, refused);
  EXPECT_EQ(code, EPERM);
}

TEST(FileSecureStore, TellsUnreadableFromMissing) {
  FileSecureStore store(folder());
  fs::create_directories(folder() / "a.secret");
  EXPECT_EQ(contentOf(store, "a"), "error " + std::to_string(EINVAL));
  EXPECT_EQ(codeOfReplacing(store, "a"), EISDIR);
  EXPECT_EQ(codeOfReplacing(store, std::string(300, 'a')), ENAMETOOLONG);

  fs::remove_all(folder());
  testing::writeFile(folder(), "not a folder");
  EXPECT_EQ(contentOf(store, "a"), "error " + std::to_string(ENOTDIR));
  EXPECT_EQ(codeOfReplacing(store, "a"), ENOTDIR);
}

TEST(FileSecureStore, NeedsAFolder) {
  FileSecureStore store({});
  EXPECT_EQ(contentOf(store, "a"), "error -25291");
  EXPECT_EQ(codeOfReplacing(store, "a"), kUnavailable);
}

#ifndef ORVANE_WITH_SECRET_SERVICE

INSTANTIATE_TEST_SUITE_P(Stores, AnySecureStore, ::testing::Values("file"));

TEST(SecretServiceStore, AnswersWithAnErrorWhenLeftOut) {
  SecretServiceStore store(kApplication);
  EXPECT_EQ(contentOf(store, "a"), "error -25291");
  EXPECT_EQ(codeOfReplacing(store, "a"), kUnavailable);
}

#else

INSTANTIATE_TEST_SUITE_P(Stores, AnySecureStore, ::testing::Values("file", "service"),
                         [](const auto& kind) { return kind.param; });

TEST(SecretServiceStore, NeverAsksForALockedCollection) {
  const testing::SessionBus bus;
  const testing::SecretService service;
  SecretServiceStore store(kApplication);
  ASSERT_TRUE(store.replace("known", bytesOf("former")));
  testing::SecretService::lock();
  for (const auto* account : {"known", "unknown"}) {
    EXPECT_EQ(contentOf(store, account), "error " + std::to_string(kNeedsUser)) << account;
    EXPECT_EQ(codeOfReplacing(store, account), kNeedsUser) << account;
  }
  EXPECT_EQ(testing::SecretService::countItems("known"), 1U);
  EXPECT_EQ(testing::SecretService::countItems("unknown"), 0U);
}

TEST(SecretServiceStore, FindsAServiceThatComesUpLater) {
  SecretServiceStore store(kApplication);
  const auto expectUnavailable = [&store](const char* why) {
    const auto item = store.read("a");
    ASSERT_FALSE(item) << why;
    EXPECT_EQ(item.error().code(), kUnavailable) << why;
    EXPECT_THAT(item.error().description(), ::testing::HasSubstr(why));
    EXPECT_EQ(codeOfReplacing(store, "a"), kUnavailable) << why;
  };
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  unsetenv("XDG_RUNTIME_DIR");
  expectUnavailable("no session bus");
  setenv("XDG_RUNTIME_DIR", testDirectory().c_str(), 1);
  expectUnavailable("cannot be reached");
  std::optional<testing::SessionBus> bus(std::in_place);
  const std::string address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  unsetenv("DBUS_SESSION_BUS_ADDRESS");  // The other variable leads to the same bus.
  expectUnavailable("no Secret Service");
  setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  std::optional<testing::SecretService> service(std::in_place);
  EXPECT_EQ(contentOf(store, "a"), "missing");
  EXPECT_EQ(codeOfReplacing(store, "a"), 0);
  service.reset();
  expectUnavailable("no Secret Service");
  bus.reset();
  expectUnavailable("cannot be reached");
}

TEST(SecretServiceStore, GivesUpOnABusThatIsSilent) {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  const auto path = (testDirectory() / "silent").string();
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener, 8), 0);
  setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
  SecretServiceStore store(kApplication, std::chrono::milliseconds(100));
  EXPECT_EQ(contentOf(store, "a"), "error -25291");
  EXPECT_EQ(codeOfReplacing(store, "a"), kUnavailable);
  close(listener);
}

TEST(SecretServiceStore, GivesUpOnAServiceThatIsSilent) {
  const testing::SessionBus bus;
  const testing::SecretService service;
  service.freeze();
  SecretServiceStore store(kApplication, std::chrono::milliseconds(100));
  EXPECT_EQ(contentOf(store, "a"), "error -25291");
  EXPECT_EQ(codeOfReplacing(store, "a"), kUnavailable);
}

TEST(SecretServiceStore, RefusesNamesThatCannotTravel) {
  SecretServiceStore store(kApplication);
  for (const auto& account : {"\xff"s, "a\0b"s}) {
    EXPECT_EQ(contentOf(store, account), "error -50");
    EXPECT_EQ(codeOfReplacing(store, account), -50);
  }
}

/// Stores another program's item with the attributes of ours, in another collection.
const ChildMain kOther("secret-service-other", [](const auto&) {
  const SecretSchema schema = {"org.orvane.SecureStore",
                               SECRET_SCHEMA_NONE,
                               {{"application", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                {"account", SECRET_SCHEMA_ATTRIBUTE_STRING}},
                               0,
                               nullptr,
                               nullptr,
                               nullptr,
                               nullptr,
                               nullptr,
                               nullptr,
                               nullptr};
  const auto stored =
      secret_password_store_sync(&schema, SECRET_COLLECTION_SESSION, "label", "other", nullptr,
                                 nullptr, "application", kApplication, "account", "a", nullptr);
  std::_Exit(stored == FALSE ? 1 : 0);
  return 0;
});

TEST(SecretServiceStore, LeavesOneItemThatLasts) {
  const testing::SessionBus bus;
  testing::SecretService service;
  SecretServiceStore store(kApplication);
  testing::outputOfChild("secret-service-other");
  EXPECT_EQ(contentOf(store, "a"), "item other") << "which lies in memory";
  for (const auto others : {1U, 2U}) {
    ASSERT_EQ(testing::SecretService::countItems("a"), others);
    ASSERT_TRUE(store.replace("a", bytesOf("new")));
    EXPECT_EQ(testing::SecretService::countItems("a"), 1U);
    EXPECT_EQ(contentOf(store, "a"), "item new");
    testing::outputOfChild("secret-service-other");
  }
  ASSERT_TRUE(store.replace("a", bytesOf("new")));
  service.restart();
  EXPECT_EQ(contentOf(store, "a"), "item new");
}

TEST(SecretServiceStore, NeverAsksForAFirstCollection) {
  const testing::SessionBus bus;
  const testing::SecretService service;
  testing::SecretService::removeDefault();
  SecretServiceStore store(kApplication);
  EXPECT_EQ(contentOf(store, "a"), "error -25308");
  EXPECT_EQ(codeOfReplacing(store, "a"), kNeedsUser);
}

TEST(SecretServiceStore, SaysThatAServiceCannotBeStarted) {
  testing::writeFile(testDirectory() / "services/org.freedesktop.secrets.service",
                     "[D-BUS Service]\nName=org.freedesktop.secrets\nExec=/bin/false\n");
  const testing::SessionBus bus;
  SecretServiceStore store(kApplication, std::chrono::milliseconds::max());
  const auto item = store.read("a");
  ASSERT_FALSE(item);
  EXPECT_EQ(item.error().code(), kUnavailable);
  EXPECT_THAT(item.error().description(), ::testing::HasSubstr("cannot be started"));
  EXPECT_EQ(codeOfReplacing(store, "a"), kUnavailable);
}

#endif

}  // namespace
}  // namespace orvane
