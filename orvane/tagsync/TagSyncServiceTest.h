#pragma once

#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncService.h>

#include "support/LogLines.h"
#include "support/TagDatabaseFile.h"
#include "support/Test.h"

namespace orvane::testing {

template <class T>
Error errorOf(const Result<T>& result) {
  return result ? Error("none", 0, "success") : result.error();
}

/// A line of another device's object.
inline std::string line(const std::string& s3Key, const std::string& tag) {
  return R"({"asset_id":"theirs","tags":[{"tag":")" + tag + R"(","confidence":0.5}],"ts":1,)" +
         R"("s3_key":")" + s3Key + "\"}\n";
}

/// A bucket whose answers a test lays out, and a device that has uploaded "mine" as "k".
class TagSyncServiceTest : public ::testing::Test {
 protected:
  TagSyncServiceTest() {
    UploadStore::shared().upsert({"mine", "k", UploadStatus::completed, 1, 1});
  }
  void SetUp() override { ASSERT_TRUE(database_.initialize()); }

  S3Config config() { return configFor("/" + server_.url() + "//", "p/"); }
  Result<TagUpload> upload() { return run(service_.uploadTagsToS3(config())); }
  Result<std::int64_t> restore() { return run(service_.downloadTagsFromS3(config())); }
  Result<std::int64_t> merge() { return run(service_.downloadAllRemoteTags(config())); }

  Reaction respond(const RecordedRequest& request) {
    const auto target = request.target();
    const std::lock_guard lock(mutex_);
    const auto found = answers_.find(target.substr(0, target.find("?list-type")));
    return found == answers_.end() ? answer(404, "<Error/>") : found->second;
  }
  void answerAt(const std::string& path, const Reaction& reaction) {
    const std::lock_guard lock(mutex_);
    answers_.insert_or_assign(path, reaction);
  }
  void answerListing(const Reaction& reaction) { answerAt("/photos", reaction); }
  void answerObject(const std::string& uuid, const Reaction& reaction) {
    answerAt("/photos/p/tags/" + uuid + "/tags.jsonl", reaction);
  }
  void answerObject(const std::string& uuid, const std::string& text) {
    answerObject(uuid, answer(200, text));
  }
  /// Lists the tag objects of these devices, and of this one.
  void list(const std::vector<std::string>& uuids) {
    std::string text = "<Contents><Key>p/tags/" + own_ + "/tags.jsonl</Key></Contents>";
    for (const auto& uuid : uuids) {
      text.append("<Contents><Key>p/tags/").append(uuid).append("/tags.jsonl</Key>");
      text.append("<ETag>&quot;e-").append(uuid).append("&quot;</ETag></Contents>");
    }
    answerListing(answer(200, text));
  }

  static void execute(std::string_view statement) {
    ASSERT_TRUE(otherConnection()->write(
        [&](platform::Database& database) { return database.execute(statement); }));
  }

  const std::string own_ = DeviceUUID::shared().uuid();
  TagDatabase& database_ = TagDatabase::shared();
  TagSyncService& service_ = TagSyncService::shared();
  std::mutex mutex_;
  std::map<std::string, Reaction> answers_;  ///< By path.
  FaultServer server_{[this](const RecordedRequest& request) { return respond(request); }};
  LogLines log_;
};

}  // namespace orvane::testing
