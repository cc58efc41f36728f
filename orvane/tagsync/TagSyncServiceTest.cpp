#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvane/bookkeeping/DeviceUUID.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/TagSyncError.h>
#include <orvane/tagsync/TagSyncService.h>
#include <orvane/tagsync/internal/TagObject.h>
#include <orvane/transport/S3Error.h>

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_future.hpp>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/FaultServer.h"
#include "support/LogLines.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/TagDatabaseFile.h"

namespace orvane {
namespace {

using platform::Database;
using testing::answer;
using ::testing::ElementsAre;
using testing::FaultServer;
using ::testing::IsEmpty;
using ::testing::Not;
using testing::Reaction;
using testing::RecordedRequest;
using testing::run;
using ::testing::UnorderedElementsAre;
using Tags = std::vector<TagWithConfidence>;

template <class T>
Error errorOf(const Result<T>& result) {
  return result ? Error("none", 0, "success") : result.error();
}

/// A line of another device's object.
std::string line(const std::string& s3Key, const std::string& tag) {
  return R"({"asset_id":"theirs","tags":[{"tag":")" + tag + R"(","confidence":0.5}],"ts":1,)" +
         R"("s3_key":")" + s3Key + "\"}\n";
}

/// A bucket whose answers a test lays out, and a device that has opened its database.
class TagSyncServiceTest : public ::testing::Test {
 protected:
  TagSyncServiceTest() { EXPECT_TRUE(TagDatabase::shared().initialize()); }

  S3Config config() {
    return {.bucket = "photos",
            .region = "eu-1",
            .accessKey = "a",
            .secretKey = "s",
            .prefix = "p/",
            .endpoint = "/" + server_.url() + "//"};
  }

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
    ASSERT_TRUE(testing::otherConnection()->write(
        [&](Database& database) { return database.execute(statement); }));
  }
  static void refuse(const std::string& tag, const std::string& how) {
    execute("CREATE TRIGGER \"" + tag + "\" BEFORE INSERT ON asset_tags WHEN NEW.tag = '" + tag +
            "' BEGIN SELECT RAISE(" + how + ", 'refused'); END");
  }

  const std::string own_ = DeviceUUID::shared().uuid();
  TagDatabase& database_ = TagDatabase::shared();
  TagSyncService& service_ = TagSyncService::shared();
  std::mutex mutex_;
  std::map<std::string, Reaction> answers_;  ///< By path.
  FaultServer server_{[this](const RecordedRequest& request) { return respond(request); }};
  testing::LogLines log_;
};

TEST(TagSyncError, DescribesEveryCase) {
  const auto describe = [](const TagSyncError& error) {
    EXPECT_EQ(*Error(error).as<TagSyncError>(), error);
    return Error(error).description();
  };
  EXPECT_EQ(describe(TagSyncError::uploadFailed("x")), "Tag upload failed: x");
  EXPECT_EQ(describe(TagSyncError::downloadFailed("x")), "Tag download failed: x");
  EXPECT_EQ(describe(TagSyncError::metadataError("")), "Metadata fetch failed: ");
  EXPECT_EQ(describe(TagSyncError::parseError("x")), "JSONL parse error: x");
  EXPECT_EQ(describe(TagSyncError::databaseError("x")), "Database error: x");
}

TEST(TagSyncServiceUnopened, HasNothingToUploadAndOnlyCounts) {
  UploadStore::shared().upsert({"mine", "k", UploadStatus::completed, 1, 1});
  testing::LogLines log;
  FaultServer server([](const RecordedRequest& request) {
    if (request.target().contains('?')) {
      return answer(200, "<Contents><Key>tags/ONE/tags.jsonl</Key></Contents>");
    }
    return answer(200,
                  R"({"asset_id":"A","tags":[{"tag":"mare","confidence":1}],"ts":5,"s3_key":"k"})");
  });
  const auto config = testing::configFor(server.url());
  auto& service = TagSyncService::shared();
  EXPECT_EQ(run(service.uploadTagsToS3(config))->byteOffset, 0);
  EXPECT_TRUE(server.requests().empty());
  EXPECT_EQ(run(service.downloadTagsFromS3(config)), 1);
  EXPECT_EQ(log.lines().back(), "[TagSync] Download complete: 1 tags applied, last_seen_ts=5");
  EXPECT_EQ(run(service.downloadAllRemoteTags(config)), 1);
}

TEST_F(TagSyncServiceTest, UploadsThisDevicesTags) {
  const Tags tagsOfA = {{"mare", 0.9}, {"citt\u00e0", 0.25}};
  ASSERT_TRUE(database_.upsertTags("A/1", tagsOfA, own_));
  ASSERT_TRUE(database_.upsertTag("B", "neve", 1, own_));
  ASSERT_TRUE(database_.upsertTag("B", "altrui", 1, "other"));
  UploadStore::shared().upsert({"A/1", "media/a.jpg", UploadStatus::completed, 1, 1});
  UploadStore::shared().upsert({"B", "", UploadStatus::completed, 1, 1});
  answerObject(own_, answer(200, "", {{"ETag", "\"tag\""}}));
  const auto before = std::chrono::system_clock::now();
  const auto upload = run(service_.uploadTagsToS3(config()));
  ASSERT_TRUE(upload) << upload.error().description();

  const auto request = server_.requests().at(0);
  EXPECT_EQ(request.method() + " " + request.target(),
            "PUT /photos/p/tags/" + own_ + "/tags.jsonl");
  EXPECT_EQ(request.header("Content-Type"), "application/x-jsonlines");
  EXPECT_EQ(upload->byteOffset, static_cast<std::int64_t>(request.body.size()));
  EXPECT_EQ(upload->eTag, "tag");
  EXPECT_EQ(upload->tagCount, 2);
  std::map<std::string, internal::TagLine> lines;
  internal::TagObjectReader object(request.body);
  for (internal::TagLine read; object.next(read);) lines[read.assetId.value()] = read;
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines["A/1"].tags, tagsOfA);
  EXPECT_EQ(lines["A/1"].s3Key, "media/a.jpg");
  EXPECT_EQ(lines["B"].tags, (Tags{{"neve", 1}}));
  EXPECT_EQ(lines["B"].s3Key, std::nullopt);
  EXPECT_EQ(lines["A/1"].ts, lines["B"].ts);
  EXPECT_LE(before.time_since_epoch() - std::chrono::milliseconds(1),
            std::chrono::milliseconds(lines["B"].ts.value()));
  const auto size = std::to_string(request.body.size());
  EXPECT_THAT(log_.lines(),
              ElementsAre("[TagSync] Starting upload for device " + own_,
                          "[TagSync] S3Config: bucket=photos, endpoint=/" + server_.url() +
                              "//, region=eu-1",
                          "[TagSync] Uploading " + size + " bytes to /" + server_.url() +
                              "///photos/p/tags/" + own_ + "/tags.jsonl",
                          "[TagSync] Upload complete: 2 tags, " + size + " bytes, ETag: tag"));
}

TEST_F(TagSyncServiceTest, UploadReportsEveryOtherOutcome) {
  const auto nothing = run(service_.uploadTagsToS3(config()));
  EXPECT_TRUE(nothing && nothing->byteOffset == 0 && nothing->eTag.empty());
  EXPECT_EQ(log_.lines().back(), "[TagSync] No tags to upload");
  ASSERT_TRUE(database_.upsertTag("A", "\xff", 1, own_));
  EXPECT_EQ(run(service_.uploadTagsToS3(config()))->tagCount, 0);
  EXPECT_EQ(log_.lines().size(), 5U);
  EXPECT_TRUE(server_.requests().empty());

  ASSERT_TRUE(database_.upsertTag("B", "neve", 1, own_));
  answerObject(own_, answer(403));
  EXPECT_EQ(errorOf(run(service_.uploadTagsToS3(config()))), S3Error::httpError(403));
  answerObject(own_, answer(200));
  const auto partly = run(service_.uploadTagsToS3(config()));
  EXPECT_TRUE(partly && partly->tagCount == 2 && partly->eTag.empty());
  EXPECT_THAT(server_.requests().back().body, Not(::testing::HasSubstr("\xff")));
  auto nowhere = config();
  nowhere.endpoint = "http://bad host";
  EXPECT_EQ(errorOf(run(service_.uploadTagsToS3(nowhere))), S3Error::invalidURL());
  execute("DROP TABLE asset_tags");
  EXPECT_EQ(errorOf(run(service_.uploadTagsToS3(config()))).domain(), Error::kDatabase);
}

TEST_F(TagSyncServiceTest, RestoresThisDevicesNewerRecords) {
  const std::string object =
      R"({"asset_id":"A","tags":[{"tag":"mare","confidence":1},{"tag":"x"}],"ts":100})"
      "\n\nno json\n"
      R"({"asset_id":"B","tags":[{"tag":"neve","confidence":0.5}],"ts":300.0,"s3_key":7})"
      "\r\n"
      R"({"asset_id":"C","tags":[{"tag":"no","confidence":1}],"ts":"900"})"
      "\n"
      R"({"asset_id":"D","ts":900})"
      "\n"
      R"({"asset_id":7,"tags":[],"ts":900})"
      "\n"
      R"({"asset_id":"E","tags":[],"ts":400})"
      "\n"
      R"({"asset_id":"F","tags":[{"tag":"sole","confidence":1}],"ts":400})";
  answerObject(own_, answer(200, object));
  EXPECT_EQ(run(service_.downloadTagsFromS3(config())), 3);
  EXPECT_EQ(database_.getLastSeenTimestamp(own_), 400);
  const auto tags = database_.exportAllTagsForDevice(own_).value();
  EXPECT_EQ(tags.size(), 3U);
  EXPECT_EQ(tags.at("B"), (Tags{{"neve", 0.5}}));
  EXPECT_EQ(server_.requests().at(0).header("Range"), std::nullopt);
  EXPECT_EQ(server_.requests().at(0).header("Host"), "127.0.0.1");
  EXPECT_THAT(log_.lines(),
              ElementsAre("[TagSync] Starting download for device " + own_,
                          "[TagSync] Downloading full file (last_seen_ts=0)",
                          "[TagSync] Download complete: 3 tags applied, last_seen_ts=400"));

  ASSERT_TRUE(database_.upsertRemoteETag(own_, "kept"));
  EXPECT_EQ(run(service_.downloadTagsFromS3(config())), 0);
  EXPECT_EQ(database_.getRemoteETag(own_).value(), "");  // The row is written all the same.
  answerObject(own_, answer(200, object + "\n" + R"({"asset_id":"A","tags":[],"ts":401})"));
  EXPECT_EQ(run(service_.downloadTagsFromS3(config())), 0);
  EXPECT_EQ(database_.getLastSeenTimestamp(own_), 401);
}

TEST_F(TagSyncServiceTest, DownloadReportsEveryFailure) {
  const auto download = [this] { return errorOf(run(service_.downloadTagsFromS3(config()))); };
  for (const int status : {300, 304, 404, 500}) {
    answerObject(own_, answer(status));
    EXPECT_EQ(download(), TagSyncError::downloadFailed("HTTP error: " + std::to_string(status)));
  }
  answerObject(own_, answer(206, "{}\n\xff"));
  EXPECT_EQ(download(), TagSyncError::parseError("Invalid UTF-8 in JSONL"));
  answerObject(own_, testing::resetAfter(0));
  EXPECT_EQ(download().code(), -1005);
  auto nowhere = config();
  nowhere.prefix = "a b";
  EXPECT_EQ(errorOf(run(service_.downloadTagsFromS3(nowhere))),
            TagSyncError::downloadFailed("Invalid URL"));
  answerObject(own_, answer(204));
  EXPECT_EQ(run(service_.downloadTagsFromS3(config())), 0);
  EXPECT_EQ(log_.lines().back(), "[TagSync] Downloading full file (last_seen_ts=0)");
  EXPECT_EQ(database_.getRemoteETag(own_).value(), std::nullopt);

  execute("CREATE TRIGGER t BEFORE INSERT ON tag_sync_offsets BEGIN SELECT RAISE(ABORT, 'x'); END");
  answerObject(own_, answer(200, R"({"asset_id":"A","tags":[{"tag":"m","confidence":1}],"ts":1})"));
  EXPECT_EQ(download().domain(), Error::kDatabase);
  EXPECT_EQ(database_.tagsForAsset("A").value(), std::vector<std::string>{"m"});
  execute("DROP TABLE tag_sync_offsets");
  EXPECT_EQ(download().domain(), Error::kDatabase);
}

TEST_F(TagSyncServiceTest, MergesOtherDevicesByObjectName) {
  UploadStore::shared().upsertBatch({{"mine-1", "k1", UploadStatus::completed, 1, 1},
                                     {"mine-2", "k2", UploadStatus::failed, 1, 1},
                                     {"nameless", "", UploadStatus::completed, 1, 1}});
  list({"ONE", "TWO", "NONE"});
  answerObject("NONE", answer(200, line("k9", "no")));
  answerObject("ONE", answer(200, line("k1", "mare") + line("k9", "no") + line("", "no") + "{}\n" +
                                      R"({"s3_key":"k1","tags":[]})" + "\n" +
                                      R"({"s3_key":"k2","ts":"any","tags":[{"tag":"a",)" +
                                      R"("confidence":1},{"tag":1},{"tag":"b","confidence":2}]})"));
  answerObject("TWO", answer(200, line("k1", "mare")));
  EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 4);
  EXPECT_EQ(server_.requests().at(0).target(), "/photos?list-type=2&prefix=p/tags/&max-keys=1000");
  EXPECT_THAT(database_.tagsForAsset("mine-1").value(), ElementsAre("mare", "mare"));
  EXPECT_THAT(database_.exportAllTagsForDevice("ONE").value(),
              UnorderedElementsAre(std::pair("mine-1", Tags{{"mare", 0.5}}),
                                   std::pair("mine-2", Tags{{"a", 1}, {"b", 2}})));
  EXPECT_THAT(database_.exportAllTagsForDevice(own_).value(), IsEmpty());
  EXPECT_EQ(database_.getRemoteETag("ONE").value(), "e-ONE");
  EXPECT_EQ(database_.getRemoteETag("NONE").value(), "e-NONE");
  EXPECT_THAT(log_.lines(),
              ElementsAre("[TagSync] Starting cross-device tag download",
                          "[TagSync] Found 3 remote tag files (excluding own device)",
                          "[TagSync] Remote device ONE: applied 3 tags",
                          "[TagSync] Remote device TWO: applied 1 tags",
                          "[TagSync] Remote device NONE: applied 0 tags",
                          "[TagSync] Cross-device download complete: 4 total tags applied"));

  ASSERT_TRUE(database_.upsertRemoteETag("TWO", ""));
  EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 1);
  EXPECT_EQ(log_.lines().at(8), "[TagSync] Skipping ONE: ETag unchanged");
  answerListing(answer(200, "<Contents><Key>p/tags/TWO/tags.jsonl</Key></Contents>"));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 1);
  EXPECT_EQ(database_.getRemoteETag("TWO").value(), "");
  list({});
  EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 0);
  EXPECT_EQ(log_.lines().back(), "[TagSync] Cross-device download complete: 0 total tags applied");

  // A stored ETag that cannot be read is none.
  execute("DROP TABLE tag_sync_offsets");
  list({"ONE"});
  EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 3);
}

TEST_F(TagSyncServiceTest, TheListPrefixIsEncodedAndKeysAreNot) {
  auto elsewhere = config();
  elsewhere.prefix = "p \u00f2/";
  answerListing(answer(200, "<Contents><Key>p \u00f2/tags/U/tags.jsonl</Key></Contents>"));
  EXPECT_EQ(run(service_.downloadAllRemoteTags(elsewhere)), 0);
  EXPECT_EQ(server_.requests().at(0).target(),
            "/photos?list-type=2&prefix=p%20%C3%B2/tags/&max-keys=1000");
  EXPECT_EQ(log_.lines().at(2), "[TagSync] Skipping device U: Tag download failed: Invalid URL");
}

TEST_F(TagSyncServiceTest, ADeviceThatFailsIsPassedOver) {
  UploadStore::shared().upsert({"mine", "k", UploadStatus::completed, 1, 1});
  list({"GONE", "DENIED", "RESET", "HALF", "EMPTY", "BYTES", "a b", "GOOD"});
  answerObject("DENIED", answer(403));
  auto half = answer(200, line("k", "no") + line("k", "no"));
  half.sendAtMost = half.answer.size() - line("k", "no").size();
  half.end = Reaction::End::reset;
  answerObject("HALF", half);
  answerObject("RESET", testing::resetAfter(0));
  answerObject("EMPTY", answer(200));
  answerObject("BYTES", answer(200, line("k", "no") + "\xff"));
  answerObject("GOOD", answer(200, line("k", "mare")));
  EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 1);
  EXPECT_THAT(database_.tagsForAsset("mine").value(), ElementsAre("mare"));
  const auto lines = log_.lines();
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_EQ(lines.at(1), "[TagSync] Found 8 remote tag files (excluding own device)");
  EXPECT_EQ(lines.at(2), "[TagSync] Skipping device GONE: Tag download failed: HTTP error: 404");
  EXPECT_EQ(lines.at(3), "[TagSync] Skipping device DENIED: Tag download failed: HTTP error: 403");
  EXPECT_THAT(lines.at(4), ::testing::StartsWith("[TagSync] Skipping device RESET: "));
  EXPECT_THAT(lines.at(5), ::testing::StartsWith("[TagSync] Skipping device HALF: "));
  EXPECT_EQ(lines.at(6), "[TagSync] Skipping device a b: Tag download failed: Invalid URL");
  EXPECT_EQ(lines.at(7), "[TagSync] Remote device GOOD: applied 1 tags");
  for (const std::string uuid : {"GONE", "DENIED", "RESET", "HALF", "EMPTY", "BYTES", "a b"}) {
    EXPECT_EQ(database_.getRemoteETag(uuid).value(), std::nullopt) << uuid;
  }
}

TEST_F(TagSyncServiceTest, AListingThatFailsEndsTheRun) {
  const auto download = [this] { return errorOf(run(service_.downloadAllRemoteTags(config()))); };
  for (const int status : {300, 403, 503}) {
    answerListing(answer(status, "<Contents>"));
    EXPECT_EQ(download(),
              TagSyncError::downloadFailed("ListObjects HTTP " + std::to_string(status)));
  }
  answerListing(answer(200, "<Contents>\xff</Contents>"));
  EXPECT_EQ(download(), TagSyncError::parseError("Invalid UTF-8 in ListObjects response"));
  answerListing(testing::resetAfter(0));
  EXPECT_EQ(download().code(), -1005);
  auto nowhere = config();
  nowhere.bucket = "a b";
  EXPECT_EQ(errorOf(run(service_.downloadAllRemoteTags(nowhere))),
            TagSyncError::downloadFailed("Invalid list URL"));
  EXPECT_EQ(log_.lines().size(), 6U);
}

TEST_F(TagSyncServiceTest, TagsThatCannotBeWrittenCountAndTheOthersStay) {
  UploadStore::shared().upsert({"mine", "k", UploadStatus::completed, 1, 1});
  refuse("abort", "ABORT");
  refuse("fail", "FAIL");
  refuse("rollback", "ROLLBACK");  // Takes a whole transaction with it.
  std::string object;
  for (const std::string tag : {"a", "abort", "b", "fail", "c", "rollback", "d", "rollback",
                                "rollback", "e", "rollback", "rollback", "rollback", "f"}) {
    object += line("k", tag);
  }
  std::string hopeless;
  for (int i = 0; i < 100; ++i) hopeless += line("k", "rollback");
  list({"ONE", "TWO"});
  answerObject("ONE", answer(200, object));
  answerObject("TWO", answer(200, hopeless + line("k", "g")));
  EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 115);
  EXPECT_THAT(database_.tagsForAsset("mine").value(),
              UnorderedElementsAre("a", "b", "c", "d", "e", "f", "g"));
}

TEST_F(TagSyncServiceTest, ALockedDatabaseLosesTagsAndIsAskedAgain) {
  UploadStore::shared().upsert({"mine", "k", UploadStatus::completed, 1, 1});
  list({"ONE"});
  answerObject("ONE", answer(200, line("k", "mare")));
  const auto other = testing::otherConnection();
  const auto locked = other->write([&](Database&) -> Result<void> {
    EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 1);
    return {};
  });
  EXPECT_TRUE(locked);
  EXPECT_EQ(database_.getRemoteETag("ONE").value(), std::nullopt);
  EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 1);
  EXPECT_THAT(database_.tagsForAsset("mine").value(), ElementsAre("mare"));
}

TEST_F(TagSyncServiceTest, ALineMayHoldAnyNumberOfTags) {
  UploadStore::shared().upsert({"mine", "k", UploadStatus::completed, 1, 1});
  constexpr int kTags = 50'000;
  std::string object = R"({"s3_key":"k","tags":[{})";
  for (int i = 0; i < kTags; ++i) {
    object += R"(,{"tag":")" + std::to_string(i) + R"(","confidence":1})";
  }
  list({"ONE"});
  answerObject("ONE", answer(200, object + "]}"));
  EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), kTags);
  EXPECT_EQ(database_.tagsForAsset("mine").value().size(), static_cast<std::size_t>(kTags));
}

TEST_F(TagSyncServiceTest, CancellingEndsTheRun) {
  answerObject("STALLED", testing::stallAfter(0));
  for (const auto& devices : {std::vector<std::string>{"STALLED", "NEXT"}, {"STALLED"}}) {
    list(devices);
    const auto before = server_.requests().size();
    boost::asio::io_context host;
    boost::asio::cancellation_signal cancel;
    auto result = boost::asio::co_spawn(
        host, service_.downloadAllRemoteTags(config()),
        boost::asio::bind_cancellation_slot(cancel.slot(), boost::asio::use_future));
    std::thread runner([&] { host.run(); });
    server_.waitForRequests(before + 2);
    boost::asio::post(host, [&] { cancel.emit(boost::asio::cancellation_type::terminal); });
    runner.join();
    EXPECT_EQ(errorOf(result.get()).code(), -999);
    EXPECT_EQ(server_.requests().size(), before + 2);
    EXPECT_THAT(log_.lines().back(), ::testing::StartsWith("[TagSync] Found "));
  }
}

TEST_F(TagSyncServiceTest, OperationsRunAtTheSameTime) {
  UploadStore::shared().upsert({"mine", "k", UploadStatus::completed, 1, 1});
  ASSERT_TRUE(database_.upsertTag("mine", "onda", 1, own_));
  list({"ONE"});
  answerObject("ONE", answer(200, line("k", "mare")));
  answerObject(own_, answer(200, R"({"asset_id":"old","tags":[{"tag":"neve","confidence":1}],)"
                                 R"("ts":5})"));
  {
    const std::jthread upload([&] { EXPECT_TRUE(run(service_.uploadTagsToS3(config()))); });
    const std::jthread restore([&] { EXPECT_EQ(run(service_.downloadTagsFromS3(config())), 1); });
    const std::jthread merge([&] { EXPECT_EQ(run(service_.downloadAllRemoteTags(config())), 1); });
  }
  EXPECT_THAT(database_.tagsForAsset("mine").value(), UnorderedElementsAre("mare", "onda"));
  EXPECT_THAT(database_.tagsForAsset("old").value(), ElementsAre("neve"));
}

}  // namespace
}  // namespace orvane
