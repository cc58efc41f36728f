#include <orvane/platform/host/Preferences.h>

#include <orvane/platform/host/HostApplication.h>

#include "support/Test.h"

namespace orvane {
namespace {

constexpr int kKeys = 20;

template <class T>
concept Settable = requires(Preferences& preferences, T value) { preferences.set("key", value); };
static_assert(Settable<bool> && Settable<std::int64_t> && Settable<ByteView>);
static_assert(!Settable<const char*> && !Settable<std::string>, "a text is no preference");

fs::path folder() { return HostApplication::applicationSupportDirectory().value(); }
fs::path file() { return folder() / "preferences.sqlite"; }

std::size_t filesKeptAside() {
  return static_cast<std::size_t>(std::ranges::count_if(
      fs::directory_iterator(folder()),
      [](const auto& entry) { return entry.path().filename().string().contains("corrupt"); }));
}

TEST(Preferences, KeepEachKindUnderItsKey) {
  auto& preferences = Preferences::shared();
  EXPECT_EQ(preferences.boolean("b"), std::nullopt);
  preferences.set("b", true);
  preferences.set("i", std::int64_t{INT64_MIN});
  preferences.set("by\0tes"sv, bytesOf("\0\xff\0"sv));
  preferences.set("", ByteView());
  EXPECT_EQ(preferences.boolean("b"), true);
  EXPECT_EQ(preferences.integer("i"), INT64_MIN);
  EXPECT_EQ(textOf(preferences.bytes("by\0tes"sv).value()), "\0\xff\0"sv);
  EXPECT_EQ(preferences.bytes("by"), std::nullopt);
  EXPECT_EQ(preferences.bytes(""), Bytes());

  EXPECT_EQ(preferences.integer("b"), std::nullopt) << "another kind";
  preferences.set("b", std::int64_t{7});
  EXPECT_EQ(preferences.boolean("b"), std::nullopt) << "replaced by another kind";
  EXPECT_EQ(preferences.integer("b"), 7);
  preferences.remove("b");
  EXPECT_EQ(preferences.integer("b"), std::nullopt);

  EXPECT_EQ(fs::status(file()).permissions(), fs::perms{0600});
  EXPECT_EQ(fs::status(folder()).permissions(), fs::perms{0700});
}

/// Writes `kKeys` keys that begin with the argument.
const ChildMain kWriter("preferences-writer", [](const auto& arguments) {
  for (int key = 0; key < kKeys; ++key) {
    Preferences::shared().set(arguments.at(0) + std::to_string(key), std::int64_t{key});
  }
  return 0;
});

/// Says what it finds under the key.
const ChildMain kReader("preferences-reader", [](const auto& arguments) {
  const auto found = Preferences::shared().boolean(arguments.at(0));
  std::cout << (found ? std::to_string(*found) : "unset");
  return 0;
});

TEST(Preferences, AFileThatIsNoneIsKeptAsideOnce) {
  const std::string garbage(5000, 'x');
  writeFile(file(), garbage);
  std::vector<ChildProcess> readers;
  for (int i = 0; i < 4; ++i) readers.push_back(ChildProcess::run("preferences-reader", {"new"}));
  for (auto& reader : readers) {
    EXPECT_EQ(reader.readAll(), "unset");
    EXPECT_EQ(reader.wait(), 0);
  }
  EXPECT_EQ(filesKeptAside(), 1U);
  EXPECT_EQ(readFile(file().string() + ".corrupt"), garbage);
  Preferences::shared().set("new", true);
  EXPECT_EQ(Preferences::shared().boolean("new"), true);
}

TEST(Preferences, AFileDamagedInUseIsKeptAside) {
  auto& preferences = Preferences::shared();
  preferences.set("before", true);
  outputOfChild("preferences-writer", {std::string(5000, 'k')});
  // All but the first page, in place, as by a failing disk.
  const auto whole = readFile(file());
  writeFile(file(), whole.substr(0, 4096) + std::string(whole.size() - 4096, '\x7f'));
  preferences.set("after", true);
  EXPECT_EQ(preferences.boolean("after"), true);
  EXPECT_EQ(preferences.boolean("before"), std::nullopt);
  EXPECT_EQ(filesKeptAside(), 1U);
}

TEST(Preferences, AFileThatWasReplacedIsOpenedAgain) {
  auto& preferences = Preferences::shared();
  preferences.set("key", true);
  fs::remove(file());
  EXPECT_EQ(preferences.boolean("key"), std::nullopt);
  preferences.set("key", false);
  EXPECT_EQ(outputOfChild("preferences-reader", {"key"}), "0");
  EXPECT_EQ(preferences.boolean("key"), false);
}

TEST(Preferences, WithoutAPlaceNothingIsKept) {
  fs::create_directories(folder().parent_path());
  writeFile(folder(), "a file in the folder's place");
  Preferences::shared().set("key", true);
  EXPECT_EQ(Preferences::shared().boolean("key"), std::nullopt);
}

}  // namespace
}  // namespace orvane
