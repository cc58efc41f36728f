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
using testing::Reaction;
using testing::RecordedRequest;
using testing::resetAfter;
using testing::run;
using ::testing::StartsWith;
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

/// A bucket whose answers a test lays out, and a device that has uploaded "mine" as "k".
class TagSyncServiceTest : public ::testing::Test {
 protected:
  TagSyncServiceTest() {
    UploadStore::shared().upsert({"mine", "k", UploadStatus::completed, 1, 1});
  }
  void SetUp() override { ASSERT_TRUE(database_.initialize()); }

  S3Config config() { return testing::configFor("/" + server_.url() + "//", "p/"); }
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
    ASSERT_TRUE(testing::otherConnection()->write(
        [&](Database& database) { return database.execute(statement); }));
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
  const std::pair<TagSyncError, std::string> cases[] = {
      {TagSyncError::uploadFailed("x"), "Tag upload failed: x"},
      {TagSyncError::downloadFailed("x"), "Tag download failed: x"},
      {TagSyncError::metadataError(""), "Metadata fetch failed: "},
      {TagSyncError::parseError("x"), "JSONL parse error: x"},
      {TagSyncError::databaseError("x"), "Database error: x"}};
  for (const auto& [error, description] : cases) {
    EXPECT_EQ(Error(error).description(), description);
    EXPECT_EQ(*Error(error).as<TagSyncError>(), error);
  }
}

class TagSyncServiceUnopened : public TagSyncServiceTest {
  void SetUp() override {}
};

TEST_F(TagSyncServiceUnopened, HasNothingToUploadAndOnlyCounts) {
  EXPECT_EQ(upload()->byteOffset, 0);
  EXPECT_TRUE(server_.requests().empty());
  answerObject(own_, R"({"asset_id":"A","tags":[{"tag":"mare","confidence":1}],"ts":5})");
  EXPECT_EQ(restore(), 1);
  EXPECT_EQ(log_.lines().back(), "[TagSync] Download complete: 1 tags applied, last_seen_ts=5");
  list({"ONE"});
  answerObject("ONE", line("k", "mare"));
  EXPECT_EQ(merge(), 1);
}

TEST_F(TagSyncServiceTest, UploadsThisDevicesTags) {
  const Tags tags = {{"mare", 0.9}, {"citt\u00e0", 0.25}};
  ASSERT_TRUE(database_.upsertTags("mine", tags, own_));
  ASSERT_TRUE(database_.upsertTag("B", "neve", 1, own_));
  ASSERT_TRUE(database_.upsertTag("B", "altrui", 1, "other"));
  UploadStore::shared().upsert({"B", "", UploadStatus::completed, 1, 1});
  answerObject(own_, answer(200, "", {{"ETag", "\"tag\""}}));
  const auto before = std::chrono::system_clock::now();
  const auto uploaded = upload();
  ASSERT_TRUE(uploaded) << uploaded.error().description();

  const auto request = server_.requests().at(0);
  EXPECT_EQ(request.method() + " " + request.target(),
            "PUT /photos/p/tags/" + own_ + "/tags.jsonl");
  EXPECT_EQ(request.header("Content-Type"), "application/x-jsonlines");
  EXPECT_EQ(uploaded->byteOffset, static_cast<std::int64_t>(request.body.size()));
  EXPECT_EQ(uploaded->eTag, "tag");
  EXPECT_EQ(uploaded->tagCount, 2);
  std::map<std::string, internal::TagLine> lines;
  internal::TagObjectReader object(request.body);
  for (internal::TagLine read; object.next(read);) lines[read.assetId.value()] = read;
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines["mine"].tags, tags);
  EXPECT_EQ(lines["mine"].s3Key, "k");
  EXPECT_EQ(lines["B"].tags, (Tags{{"neve", 1}}));
  EXPECT_EQ(lines["B"].s3Key, std::nullopt);
  EXPECT_EQ(lines["mine"].ts, lines["B"].ts);
  EXPECT_LE(before.time_since_epoch() - std::chrono::milliseconds(1),
            std::chrono::milliseconds(lines["B"].ts.value()));
  const auto size = std::to_string(request.body.size());
  EXPECT_THAT(
      log_.lines(),
      ElementsAre("[TagSync] Starting upload for device " + own_,
                  "[TagSync] S3Config: bucket=photos, endpoint=/" + server_.url() + "//, region=r",
                  "[TagSync] Uploading " + size + " bytes to /" + server_.url() +
                      "///photos/p/tags/" + own_ + "/tags.jsonl",
                  "[TagSync] Upload complete: 2 tags, " + size + " bytes, ETag: tag"));
}

TEST_F(TagSyncServiceTest, UploadReportsEveryOtherOutcome) {
  const auto nothing = upload();
  EXPECT_TRUE(nothing && nothing->byteOffset == 0 && nothing->eTag.empty());
  EXPECT_EQ(log_.lines().back(), "[TagSync] No tags to upload");
  ASSERT_TRUE(database_.upsertTag("A", "\xff", 1, own_));
  EXPECT_EQ(upload()->tagCount, 0);
  EXPECT_EQ(log_.lines().size(), 5U);
  EXPECT_TRUE(server_.requests().empty());

  ASSERT_TRUE(database_.upsertTag("B", "neve", 1, own_));
  answerObject(own_, answer(403));
  EXPECT_EQ(errorOf(upload()), S3Error::httpError(403));
  answerObject(own_, answer(200));
  const auto partly = upload();
  EXPECT_TRUE(partly && partly->tagCount == 2 && partly->eTag.empty());
  execute("DROP TABLE asset_tags");
  EXPECT_EQ(errorOf(upload()).domain(), Error::kDatabase);
}

TEST_F(TagSyncServiceTest, RestoresThisDevicesNewerRecords) {
  const std::string object = R"({"asset_id":"A","tags":[{"tag":"mare","confidence":1}],"ts":100}

no json
{"asset_id":"B","tags":[{"tag":"neve","confidence":0.5}],"ts":300.0,"s3_key":7}
{"asset_id":"C","tags":[{"tag":"no","confidence":1}],"ts":"900"}
{"asset_id":"D","ts":900}
{"asset_id":7,"tags":[],"ts":900}
{"asset_id":"E","tags":[],"ts":400}
{"asset_id":"F","tags":[{"tag":"sole","confidence":1}],"ts":400})";
  answerObject(own_, object);
  EXPECT_EQ(restore(), 3);
  EXPECT_EQ(database_.getLastSeenTimestamp(own_), 400);
  EXPECT_THAT(
      database_.exportAllTagsForDevice(own_).value(),
      UnorderedElementsAre(std::pair("A", Tags{{"mare", 1}}), std::pair("B", Tags{{"neve", 0.5}}),
                           std::pair("F", Tags{{"sole", 1}})));
  EXPECT_EQ(server_.requests().at(0).header("Range"), std::nullopt);
  EXPECT_EQ(server_.requests().at(0).header("Host"), "127.0.0.1");
  EXPECT_THAT(log_.lines(),
              ElementsAre("[TagSync] Starting download for device " + own_,
                          "[TagSync] Downloading full file (last_seen_ts=0)",
                          "[TagSync] Download complete: 3 tags applied, last_seen_ts=400"));

  ASSERT_TRUE(database_.upsertRemoteETag(own_, "kept"));
  EXPECT_EQ(restore(), 0);
  EXPECT_EQ(database_.getRemoteETag(own_).value(), "");  // The row is written all the same.
  answerObject(own_, object + "\n" + R"({"asset_id":"A","tags":[],"ts":401})");
  EXPECT_EQ(restore(), 0);
  EXPECT_EQ(database_.getLastSeenTimestamp(own_), 401);
}

TEST_F(TagSyncServiceTest, RestoreReportsEveryFailure) {
  for (const int status : {300, 404}) {
    answerObject(own_, answer(status));
    EXPECT_EQ(errorOf(restore()),
              TagSyncError::downloadFailed("HTTP error: " + std::to_string(status)));
  }
  answerObject(own_, answer(206, "{}\n\xff"));
  EXPECT_EQ(errorOf(restore()), TagSyncError::parseError("Invalid UTF-8 in JSONL"));
  answerObject(own_, resetAfter(0));
  EXPECT_EQ(errorOf(restore()).code(), -1005);
  answerObject(own_, answer(204));
  EXPECT_EQ(restore(), 0);
  EXPECT_EQ(log_.lines().back(), "[TagSync] Downloading full file (last_seen_ts=0)");
  EXPECT_EQ(database_.getRemoteETag(own_).value(), std::nullopt);

  execute("CREATE TRIGGER t BEFORE INSERT ON tag_sync_offsets BEGIN SELECT RAISE(ABORT, 'x'); END");
  answerObject(own_, R"({"asset_id":"A","tags":[{"tag":"m","confidence":1}],"ts":1})");
  EXPECT_EQ(errorOf(restore()).domain(), Error::kDatabase);
  EXPECT_THAT(database_.tagsForAsset("A").value(), ElementsAre("m"));
  execute("DROP TABLE tag_sync_offsets");
  EXPECT_EQ(errorOf(restore()).domain(), Error::kDatabase);
}

TEST_F(TagSyncServiceTest, MergesOtherDevicesByObjectName) {
  UploadStore::shared().upsertBatch({{"mine-2", "k2", UploadStatus::failed, 1, 1},
                                     {"nameless", "", UploadStatus::completed, 1, 1}});
  list({"ONE", "TWO", "NONE"});
  answerObject("NONE", line("k9", "no"));
  answerObject("ONE", line("k", "mare") + line("k9", "no") + line("", "no") +
                          "{}\n{\"s3_key\":\"k\",\"tags\":[]}\n" +
                          R"({"s3_key":"k2","ts":"any","tags":[{"tag":"a","confidence":1},)" +
                          R"({"tag":1},{"tag":"b","confidence":2}]})");
  answerObject("TWO", line("k", "mare"));
  EXPECT_EQ(merge(), 4);
  EXPECT_EQ(server_.requests().at(0).target(), "/photos?list-type=2&prefix=p/tags/&max-keys=1000");
  EXPECT_THAT(database_.tagsForAsset("mine").value(), ElementsAre("mare", "mare"));
  EXPECT_THAT(database_.exportAllTagsForDevice("ONE").value(),
              UnorderedElementsAre(std::pair("mine", Tags{{"mare", 0.5}}),
                                   std::pair("mine-2", Tags{{"a", 1}, {"b", 2}})));
  EXPECT_THAT(database_.exportAllTagsForDevice(own_).value(), IsEmpty());
  EXPECT_EQ(database_.getRemoteETag("NONE").value(), "e-NONE");
  EXPECT_THAT(log_.lines(),
              ElementsAre("[TagSync] Starting cross-device tag download",
                          "[TagSync] Found 3 remote tag files (excluding own device)",
                          "[TagSync] Remote device ONE: applied 3 tags",
                          "[TagSync] Remote device TWO: applied 1 tags",
                          "[TagSync] Remote device NONE: applied 0 tags",
                          "[TagSync] Cross-device download complete: 4 total tags applied"));
}

TEST_F(TagSyncServiceTest, AnObjectIsReadAgainUnlessItsETagIsKnown) {
  answerObject("ONE", line("k", "mare"));
  list({"ONE"});
  EXPECT_EQ(merge(), 1);
  EXPECT_EQ(merge(), 0);
  EXPECT_EQ(log_.lines().at(6), "[TagSync] Skipping ONE: ETag unchanged");
  EXPECT_EQ(log_.lines().at(7), "[TagSync] Cross-device download complete: 0 total tags applied");
  answerListing(answer(200, "<Contents><Key>p/tags/ONE/tags.jsonl</Key></Contents>"));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(merge(), 1);  // No ETag is none to compare.
  EXPECT_EQ(database_.getRemoteETag("ONE").value(), "");
  execute("DROP TABLE tag_sync_offsets");
  list({"ONE"});
  EXPECT_EQ(merge(), 1);
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
  const std::vector<std::string> failing = {"GONE", "RESET", "HALF", "EMPTY", "BYTES"};
  auto all = failing;
  all.emplace_back("GOOD");
  list(all);
  auto half = answer(200, line("k", "no") + line("k", "no"));
  half.sendAtMost = half.answer.size() - line("k", "no").size();
  half.end = Reaction::End::reset;
  answerObject("HALF", half);
  answerObject("RESET", resetAfter(0));
  answerObject("EMPTY", "");
  answerObject("BYTES", line("k", "no") + "\xff");
  answerObject("GOOD", line("k", "mare"));
  EXPECT_EQ(merge(), 1);
  EXPECT_THAT(database_.tagsForAsset("mine").value(), ElementsAre("mare"));
  for (const auto& uuid : failing) {
    EXPECT_EQ(database_.getRemoteETag(uuid).value(), std::nullopt) << uuid;
  }
  EXPECT_THAT(log_.lines(),
              ElementsAre("[TagSync] Starting cross-device tag download",
                          "[TagSync] Found 6 remote tag files (excluding own device)",
                          "[TagSync] Skipping device GONE: Tag download failed: HTTP error: 404",
                          StartsWith("[TagSync] Skipping device RESET: "),
                          StartsWith("[TagSync] Skipping device HALF: "),
                          "[TagSync] Remote device GOOD: applied 1 tags",
                          "[TagSync] Cross-device download complete: 1 total tags applied"));
}

TEST_F(TagSyncServiceTest, AListingThatFailsEndsTheRun) {
  for (const int status : {300, 403}) {
    answerListing(answer(status, "<Contents>"));
    EXPECT_EQ(errorOf(merge()),
              TagSyncError::downloadFailed("ListObjects HTTP " + std::to_string(status)));
  }
  answerListing(answer(200, "<Contents>\xff</Contents>"));
  EXPECT_EQ(errorOf(merge()), TagSyncError::parseError("Invalid UTF-8 in ListObjects response"));
  answerListing(resetAfter(0));
  EXPECT_EQ(errorOf(merge()).code(), -1005);
  EXPECT_EQ(log_.lines().size(), 4U);
}

TEST_F(TagSyncServiceTest, AnAddressThatIsNoneIsAnError) {
  ASSERT_TRUE(database_.upsertTag("B", "neve", 1, own_));
  auto nowhere = config();
  nowhere.bucket = "a b";
  EXPECT_EQ(errorOf(run(service_.uploadTagsToS3(nowhere))), S3Error::invalidURL());
  EXPECT_EQ(errorOf(run(service_.downloadTagsFromS3(nowhere))),
            TagSyncError::downloadFailed("Invalid URL"));
  EXPECT_EQ(errorOf(run(service_.downloadAllRemoteTags(nowhere))),
            TagSyncError::downloadFailed("Invalid list URL"));
}

TEST_F(TagSyncServiceTest, TagsThatCannotBeWrittenCountAndTheOthersStay) {
  // The last one takes a whole transaction with it.
  for (const std::string how : {"ABORT", "FAIL", "ROLLBACK"}) {
    execute("CREATE TRIGGER \"" + how + "\" BEFORE INSERT ON asset_tags WHEN NEW.tag = '" + how +
            "' BEGIN SELECT RAISE(" + how + ", 'refused'); END");
  }
  std::string object;
  for (const std::string tag : {"a", "ABORT", "b", "FAIL", "c", "ROLLBACK", "d", "ROLLBACK",
                                "ROLLBACK", "e", "ROLLBACK", "ROLLBACK", "ROLLBACK", "f"}) {
    object += line("k", tag);
  }
  std::string hopeless;
  for (int i = 0; i < 100; ++i) hopeless += line("k", "ROLLBACK");
  list({"ONE", "TWO"});
  answerObject("ONE", object);
  answerObject("TWO", hopeless + line("k", "g"));
  EXPECT_EQ(merge(), 115);
  EXPECT_THAT(database_.tagsForAsset("mine").value(),
              UnorderedElementsAre("a", "b", "c", "d", "e", "f", "g"));
}

TEST_F(TagSyncServiceTest, ALockedDatabaseLosesTagsAndIsAskedAgain) {
  list({"ONE"});
  answerObject("ONE", line("k", "mare"));
  EXPECT_TRUE(testing::otherConnection()->write([&](Database&) -> Result<void> {
    EXPECT_EQ(merge(), 1);
    return {};
  }));
  EXPECT_EQ(database_.getRemoteETag("ONE").value(), std::nullopt);
  EXPECT_EQ(merge(), 1);
  EXPECT_THAT(database_.tagsForAsset("mine").value(), ElementsAre("mare"));
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
    EXPECT_THAT(log_.lines().back(), StartsWith("[TagSync] Found "));
  }
}

TEST_F(TagSyncServiceTest, OperationsRunAtTheSameTime) {
  ASSERT_TRUE(database_.upsertTag("mine", "onda", 1, own_));
  list({"ONE"});
  answerObject("ONE", line("k", "mare"));
  answerObject(own_, R"({"asset_id":"old","tags":[{"tag":"neve","confidence":1}],"ts":5})");
  {
    const std::jthread uploading([&] { EXPECT_TRUE(upload()); });
    const std::jthread restoring([&] { EXPECT_EQ(restore(), 1); });
    const std::jthread merging([&] { EXPECT_EQ(merge(), 1); });
  }
  EXPECT_THAT(database_.tagsForAsset("mine").value(), UnorderedElementsAre("mare", "onda"));
  EXPECT_THAT(database_.tagsForAsset("old").value(), ElementsAre("neve"));
}

}  // namespace
}  // namespace orvane
