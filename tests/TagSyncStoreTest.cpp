// Devices, each a process with its own data folder, identity and database, share one bucket of a
// real object store.

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncService.h>

#include "support/ChildProcess.h"
#include "support/ObjectStore.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <numeric>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace orvane {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using testing::configFor;
using ::testing::Each;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::ObjectStore;
using testing::run;

template <class T>
void report(const Result<T>& result) {
  if (!result) {
    std::cout << result.error().description() << '\n';
  } else if constexpr (std::is_same_v<T, TagUpload>) {
    std::cout << result->byteOffset << ' ' << result->eTag << ' ' << result->tagCount << '\n';
  } else {
    std::cout << *result << '\n';
  }
}

/// Arguments: the device's folder, then what it does, a word each and the words that it needs. Each
/// thing done prints a line.
const testing::ChildMain kDevice("device", [](const std::vector<std::string>& arguments) {
  auto argument = arguments.begin();
  const auto next = [&argument] { return *argument++; };
  if (!HostApplication::configure({.dataDirectory = next()})) return 1;
  auto& database = TagDatabase::shared();
  if (!database.initialize()) return 2;
  const auto own = DeviceUUID::shared().uuid();
  auto& service = TagSyncService::shared();
  auto config = configFor(ObjectStore());
  while (argument != arguments.end()) {
    const auto word = next();
    if (word == "uuid") {
      std::cout << own << '\n';
    } else if (word == "prefix") {
      config.prefix += next();
    } else if (word == "record") {
      const auto id = next();
      UploadStore::shared().upsert({id, next(), UploadStatus::completed, 1, 1});
    } else if (word == "tag") {
      const auto asset = next();
      if (!database.upsertTag(asset, next(), 0.1, own)) return 3;
    } else if (word == "upload") {
      report(run(service.uploadTagsToS3(config)));
    } else if (word == "restore") {
      report(run(service.downloadTagsFromS3(config)));
    } else if (word == "merge") {
      report(run(service.downloadAllRemoteTags(config)));
    } else if (word == "show") {
      auto tags = database.tagsForAsset(next()).value();
      std::ranges::sort(tags);
      for (const auto& tag : tags) std::cout << tag << ' ';
      std::cout << '\n';
    }
  }
  return 0;
});

/// One of the user's devices, known by its folder.
class Device {
 public:
  explicit Device(const std::string& name)
      : folder_((testing::testDirectory() / name).string()), uuid_(does({"uuid"})) {
    uuid_.pop_back();
  }

  [[nodiscard]] std::string key() const {
    return ObjectStore().prefix() + "tags/" + uuid_ + "/tags.jsonl";
  }
  [[nodiscard]] const std::string& uuid() const { return uuid_; }
  /// Does all that in a process of its own, and returns what it prints.
  [[nodiscard]] std::string does(std::vector<std::string> words) const {
    words.insert(words.begin(), folder_);
    return testing::outputOfChild("device", words);
  }
  /// The same, without waiting.
  [[nodiscard]] testing::ChildProcess starts(std::vector<std::string> words) const {
    words.insert(words.begin(), folder_);
    return testing::ChildProcess::run("device", words);
  }
  void loseDatabase() const {
    for (const std::string end : {"", "-wal", "-shm"}) {
      fs::remove(fs::path(folder_) / "Documents" / ("tag_database.sqlite" + end));
    }
  }

 private:
  std::string folder_;
  std::string uuid_;
};

TEST(TagSyncStore, TagsReachTheSameAssetOnOtherDevices) {
  const ObjectStore store;
  const Device a("a");
  const Device b("b");
  EXPECT_EQ(a.does({"upload", "merge"}), "0  0\n0\n");
  const auto uploaded = a.does({"record", "a1", "media/1.jpg", "record", "a2", "media/2.jpg",  //
                                "tag", "a1", "mare", "tag", "a1", "citt\u00e0", "tag", "a2", "neve",
                                "tag", "a3", "sole", "upload"});
  const auto object = store.head(a.key()).value();
  EXPECT_EQ(uploaded, std::to_string(object.size) + " " +
                          object.etag.substr(1, object.etag.size() - 2) + " 3\n");
  EXPECT_EQ(object.contentType, "application/x-jsonlines");

  EXPECT_THAT(b.does({"record", "b1", "media/1.jpg", "tag", "b1", "onda", "upload", "merge"}),
              EndsWith(" 1\n2\n"));
  EXPECT_EQ(b.does({"show", "b1", "show", "b2"}), "citt\u00e0 mare onda \n\n");
  EXPECT_EQ(b.does({"merge"}), "0\n");
  // What came from others is not published again.
  EXPECT_THAT(b.does({"upload"}), EndsWith(" 1\n"));
  EXPECT_THAT(store.get(b.key()).value(), AllOf(HasSubstr("onda"), Not(HasSubstr("mare"))));

  EXPECT_EQ(a.does({"merge", "show", "a1", "show", "a2"}), "1\ncitt\u00e0 mare onda \nneve \n");
  EXPECT_THAT(a.does({"tag", "a1", "luna", "upload", "merge"}), EndsWith("\n0\n"));
  EXPECT_EQ(b.does({"merge", "show", "b1"}), "3\ncitt\u00e0 luna mare onda \n");
}

TEST(TagSyncStore, EveryPlainPrefixWillDo) {
  const Device a("a");
  const Device b("b");
  EXPECT_EQ(a.does({"record", "a1", "m", "tag", "a1", "mare"}) + b.does({"record", "b1", "m"}), "");
  for (const auto* prefix : {"name", "a/b/", "Az09-._~/"}) {
    EXPECT_THAT(a.does({"prefix", prefix, "upload"}), EndsWith(" 1\n")) << prefix;
    EXPECT_EQ(b.does({"prefix", prefix, "merge"}), "1\n") << prefix;
  }
}

TEST(TagSyncStore, DevicesWorkAtTheSameTime) {
  const std::vector<Device> devices = {Device("a"), Device("b"), Device("c")};
  const auto all = [&](const std::vector<std::string>& words) {
    std::vector<testing::ChildProcess> running;
    for (const auto& device : devices) {
      auto own = words;
      std::ranges::replace(own, "OWN", device.uuid().substr(0, 8));
      running.push_back(device.starts(own));
    }
    std::vector<std::string> outputs;
    for (auto& child : running) {
      outputs.push_back(child.readAll());
      EXPECT_EQ(child.wait(), 0);
    }
    return outputs;
  };
  all({"record", "OWN", "media/1.jpg", "tag", "OWN", "OWN", "upload"});
  EXPECT_THAT(all({"merge"}), Each("2\n"));
  std::set<std::string> tags;
  for (const auto& device : devices) tags.insert(device.uuid().substr(0, 8) + " ");
  const auto everyone = std::accumulate(tags.begin(), tags.end(), std::string()) + "\n";
  EXPECT_THAT(all({"show", "OWN", "merge"}), Each(everyone + "0\n"));
}

TEST(TagSyncStore, ALostDatabaseIsRestored) {
  const Device a("a");
  EXPECT_EQ(a.does({"restore"}), "Tag download failed: HTTP error: 404\n");
  static_cast<void>(
      a.does({"tag", "a1", "mare", "tag", "a1", "onda", "tag", "a2", "neve", "upload"}));
  a.loseDatabase();
  EXPECT_EQ(a.does({"show", "a1", "restore", "show", "a1", "show", "a2"}),
            "\n3\nmare onda \nneve \n");
  EXPECT_EQ(a.does({"restore"}), "0\n");
}

TEST(TagSyncStore, ADeviceThatIsBrokenIsPassedOver) {
  const ObjectStore store;
  const Device a("a");
  const Device b("b");
  static_cast<void>(b.does({"record", "b1", "media/1.jpg", "tag", "b1", "mare", "upload"}));
  const std::string good = R"({"s3_key":"media/1.jpg","tags":[{"tag":"no","confidence":1}]})";
  // "-" comes before every identifier.
  store.put(store.prefix() + "tags/-hostile/tags.jsonl",
            std::string(1'000'000, '[') + "\n{\"s3_key\":\"media/1.jpg\"", "text/plain");
  store.put(store.prefix() + "tags/-odd?x=#/tags.jsonl", good, "text/plain");
  EXPECT_EQ(a.does({"record", "a1", "media/1.jpg", "merge", "show", "a1"}), "1\nmare \n");
}

}  // namespace
}  // namespace orvane
