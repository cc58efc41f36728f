#include <orvane/platform/secrets/FileSecureStore.h>
#include <orvane/platform/secrets/SecretServiceStore.h>

#include "support/OtherUser.h"
#include "support/SecretService.h"
#include "support/Test.h"

#include <sys/fsuid.h>
#include <sys/prctl.h>

namespace orvane {
namespace {

constexpr int kUnavailable = -25291;
constexpr int kNeedsUser = -25308;
constexpr const char* kApplication = "org.example.host";

fs::path folder() { return testDirectory() / "data/Secrets"; }

/// What a store says, in a form that can be compared and printed.
template <class Store>
std::string contentOf(Store&& store, const std::string& account) {
  const auto item = store.read(account);
  if (!item) return "error " + std::to_string(item.error().code());
  return *item ? "item " + std::string(textOf(**item)) : "missing";
}

template <class Store>
std::int64_t codeOfReplacing(Store&& store, const std::string& account) {
  const auto replaced = store.replace(account, bytesOf("new"));
  return replaced ? 0 : replaced.error().code();
}

template <class Store>
void expectError(std::int64_t code, Store store, const std::string& account = "a") {
  EXPECT_EQ(contentOf(store, account), "error " + std::to_string(code)) << account;
  EXPECT_EQ(codeOfReplacing(store, account), code) << account;
}

/// Two stores of one kind share the items.
template <class Store>
void expectOneItemPerAccount(Store store, Store same) {
  std::string everyByte;
  for (int byte = 0; byte < 256; ++byte) everyByte += static_cast<char>(byte);
  const std::map<std::string, std::string> items = {
      {"plain", "value"}, {"Plain", "other case"}, {"empty", ""},
      {"nul", "\0"s},     {"binary", everyByte},   {"long", std::string(99'999, 'x')},
      {"", "no name"},    {"..", "dots"},          {"../../outside", "a"},
      {"a/b %2F\n", "b"}, {"\u00e8 'q\"", "c"}};
  for (const auto& former : {"former"s, ""s}) {
    for (const auto& [account, data] : items) {
      EXPECT_EQ(contentOf(same, account), former.empty() ? "item former" : "missing");
      ASSERT_TRUE(store.replace(account, bytesOf(former.empty() ? data : former))) << account;
    }
  }
  for (const auto& [account, data] : items) {
    EXPECT_EQ(contentOf(same, account), "item " + data);
  }
  std::vector<std::jthread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      EXPECT_EQ(codeOfReplacing(store, "account"), 0);
      EXPECT_EQ(contentOf(store, "account"), "item new");
    });
  }
}

TEST(FileSecureStore, KeepsOneItemPerAccount) {
  expectOneItemPerAccount(FileSecureStore(folder()), FileSecureStore(folder()));
}

TEST(FileSecureStore, LetsOnlyTheUserIn) {
  umask(0);
  const auto secret = folder() / "a.secret";
  const auto modeOf = [](const fs::path& path) { return fs::status(path).permissions(); };
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(codeOfReplacing(FileSecureStore(folder()), "a"), 0);
    EXPECT_EQ(modeOf(folder()), fs::perms::owner_all);
    EXPECT_EQ(modeOf(secret), fs::perms::owner_read | fs::perms::owner_write);
    fs::permissions(folder(), fs::perms::all);
    EXPECT_EQ(contentOf(FileSecureStore(folder()), "a"), "item new");
    EXPECT_EQ(modeOf(folder()), fs::perms::owner_all);
    fs::permissions(folder(), fs::perms::all);
    fs::permissions(secret, fs::perms::all);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(folder()), {}), 1);
}

TEST(FileSecureStore, TrustsNothingOfAnotherUser) {
  if (!testing::OtherUser::isPossible()) GTEST_SKIP() << "needs root";
  writeFile(folder() / "a.secret", "planted");
  fs::permissions(folder(), fs::perms::owner_all);
  ASSERT_EQ(chown(folder().c_str(), testing::OtherUser::kId, 0), 0);
  expectError(EPERM, FileSecureStore(folder()));
  EXPECT_EQ(readFile(folder() / "a.secret"), "planted");

  ASSERT_EQ(chown(folder().c_str(), 0, 0), 0);
  ASSERT_EQ(chown((folder() / "a.secret").c_str(), testing::OtherUser::kId, 0), 0);
  EXPECT_EQ(contentOf(FileSecureStore(folder()), "a"), "error 1");
  EXPECT_EQ(codeOfReplacing(FileSecureStore(folder()), "a"), 0);
  EXPECT_EQ(contentOf(FileSecureStore(folder()), "a"), "item new");

  // With the access of another user the mode cannot be changed.
  for (auto path = folder(); path != testDirectory().parent_path(); path = path.parent_path()) {
    fs::permissions(path, fs::perms::all);
  }
  const auto own = static_cast<uid_t>(setfsuid(testing::OtherUser::kId));
  expectError(EPERM, FileSecureStore(folder()), "b");
  setfsuid(own);
  prctl(PR_SET_DUMPABLE, 1);  // For the leak check.
}

TEST(FileSecureStore, TellsUnreadableFromMissing) {
  fs::create_directories(folder() / "a.secret");
  EXPECT_EQ(contentOf(FileSecureStore(folder()), "a"), "error " + std::to_string(EINVAL));
  EXPECT_EQ(codeOfReplacing(FileSecureStore(folder()), "a"), EISDIR);
  EXPECT_EQ(codeOfReplacing(FileSecureStore(folder()), std::string(300, 'a')), ENAMETOOLONG);
  writeFile(folder() / "plain", "");
  fs::permissions(folder() / "plain", fs::perms{0644});
  expectError(ENOTDIR, FileSecureStore(folder() / "plain"));
  EXPECT_EQ(fs::status(folder() / "plain").permissions(), fs::perms{0644});
  expectError(kUnavailable, FileSecureStore({}));
}

#ifndef ORVANE_WITH_SECRET_SERVICE

TEST(SecretServiceStore, GivesAnErrorWhenLeftOut) {
  expectError(kUnavailable, SecretServiceStore(kApplication));
}

#else

std::string callService(const std::string& method, const std::string& argument) {
  return ChildProcess::start({"gdbus", "call", "--session", "--dest", "org.freedesktop.secrets",
                              "--object-path", "/org/freedesktop/secrets", "--method",
                              "org.freedesktop.Secret.Service." + method, argument})
      .readAll();
}

/// How many items the service has under that account name, whoever put them there.
std::ptrdiff_t countItems(const std::string& account) {
  const auto items = callService("SearchItems", "{'account': '" + account + "'}");
  return std::ranges::distance(items | std::views::split("/collection/"sv)) - 1;
}

TEST(SecretServiceStore, KeepsOneItemPerAccount) {
  const testing::SessionBus bus;
  const testing::SecretService service;
  expectOneItemPerAccount(SecretServiceStore(kApplication), SecretServiceStore(kApplication));
  EXPECT_EQ(countItems("account"), 1);
  for (const auto& cannotTravel : {"\xff"s, "a\0b"s}) {
    expectError(-50, SecretServiceStore(kApplication), cannotTravel);
  }
}

TEST(SecretServiceStore, NeverAsksTheUser) {
  const testing::SessionBus bus;
  std::optional<testing::SecretService> service("");
  expectError(kNeedsUser, SecretServiceStore(kApplication));  // Who would name a first collection.
  service.reset();
  service.emplace();
  ASSERT_EQ(codeOfReplacing(SecretServiceStore(kApplication), "known"), 0);
  callService("Lock", "['/org/freedesktop/secrets/aliases/default']");
  expectError(kNeedsUser, SecretServiceStore(kApplication), "known");
  expectError(kNeedsUser, SecretServiceStore(kApplication), "unknown");
  EXPECT_EQ(countItems("known"), 1);
  EXPECT_EQ(countItems("unknown"), 0);
}

TEST(SecretServiceStore, FindsAServiceThatComesUpLater) {
  SecretServiceStore store(kApplication, std::chrono::milliseconds::max());
  const auto expectUnavailable = [&store](const char* why) {
    expectError(kUnavailable, store);
    EXPECT_THAT(std::string(store.read("a").error().description()), HasSubstr(why));
  };
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  unsetenv("XDG_RUNTIME_DIR");
  expectUnavailable("no session bus");
  setenv("XDG_RUNTIME_DIR", testDirectory().c_str(), 1);
  expectUnavailable("cannot be reached");
  std::optional<testing::SessionBus> bus(std::in_place);
  unsetenv("DBUS_SESSION_BUS_ADDRESS");  // The other variable leads to the same bus.
  expectUnavailable("no Secret Service");
  bus.reset();
  expectUnavailable("cannot be reached");
  const auto description = testDirectory() / "services/org.freedesktop.secrets.service";
  writeFile(description, "[D-BUS Service]\nName=org.freedesktop.secrets\nExec=/bin/false\n");
  bus.emplace();
  expectUnavailable("cannot be started");
  const testing::SecretService service;
  EXPECT_EQ(contentOf(store, "a"), "missing");
  service.daemon.kill(SIGSTOP);
  expectError(kUnavailable, SecretServiceStore(kApplication, 100ms));
  service.daemon.kill(SIGCONT);
  bus->daemon.kill(SIGSTOP);
  expectError(kUnavailable, SecretServiceStore(kApplication, 100ms));
}

TEST(SecretServiceStore, LeavesOneItemThatLasts) {
  const testing::SessionBus bus;
  std::optional<testing::SecretService> service(std::in_place);
  EXPECT_EQ(codeOfReplacing(SecretServiceStore(kApplication), "a"), 0);
  EXPECT_EQ(codeOfReplacing(SecretServiceStore(kApplication), "a"), 0);
  service.reset();
  service.emplace();
  EXPECT_EQ(contentOf(SecretServiceStore(kApplication), "a"), "item new");
}

#endif

}  // namespace
}  // namespace orvane
