// Devices, each a process with its own data folder, identity and database, share one bucket of a
// real object store.

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncService.h>

#include "support/Test.h"

namespace orvane {
namespace {

using ::testing::EndsWith;
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
const ChildMain kDevice("device", [](const auto& arguments) {
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
      : folder_((testDirectory() / name).string()), uuid_(does({"uuid"})) {
    uuid_.pop_back();
  }

  [[nodiscard]] std::string key() const {
    return ObjectStore().prefix() + "tags/" + uuid_ + "/tags.jsonl";
  }
  /// Does all that in a process of its own, and returns what it prints.
  [[nodiscard]] std::string does(std::vector<std::string> words) const {
    words.insert(words.begin(), folder_);
    return outputOfChild("device", words);
  }
  void loseDatabase() const { fs::remove_all(fs::path(folder_) / "Documents"); }

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

  EXPECT_EQ(a.does({"merge", "show", "a1", "show", "a2"}), "1\ncitt\u00e0 mare onda \nneve \n");
  EXPECT_THAT(a.does({"tag", "a1", "luna", "upload", "merge"}), EndsWith("\n0\n"));
  EXPECT_EQ(b.does({"merge", "show", "b1"}), "3\ncitt\u00e0 luna mare onda \n");
}

TEST(TagSyncStore, EveryPlainPrefixWillDoAndABrokenDeviceIsPassedOver) {
  const ObjectStore store;
  const Device a("a");
  const Device b("b");
  EXPECT_EQ(a.does({"record", "a1", "m", "tag", "a1", "mare"}) + b.does({"record", "b1", "m"}), "");
  for (const std::string prefix : {"name", "a/b/", "Az09-._~/"}) {
    // "-" comes before every identifier.
    store.put(store.prefix() + prefix + "tags/-hostile/tags.jsonl",
              std::string(1'000'000, '[') + "\n{\"s3_key\":\"m\"", "text/plain");
    EXPECT_THAT(a.does({"prefix", prefix, "upload"}), EndsWith(" 1\n")) << prefix;
    EXPECT_EQ(b.does({"prefix", prefix, "merge", "show", "b1"}), "1\nmare \n") << prefix;
  }
}

TEST(TagSyncStore, ALostDatabaseIsRestored) {
  const Device a("a");
  EXPECT_EQ(a.does({"restore"}), "Tag download failed: HTTP error: 404\n");
  EXPECT_THAT(a.does({"tag", "a1", "mare", "tag", "a1", "onda", "tag", "a2", "neve", "upload"}),
              EndsWith(" 2\n"));
  a.loseDatabase();
  EXPECT_EQ(a.does({"show", "a1", "restore", "show", "a1", "show", "a2"}),
            "\n3\nmare onda \nneve \n");
  EXPECT_EQ(a.does({"restore"}), "0\n");
}

}  // namespace
}  // namespace orvane
