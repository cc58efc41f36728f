#include "TagSyncServiceTest.h"

#include <orvane/tagsync/TagSyncError.h>
#include <orvane/tagsync/internal/TagObject.h>
#include <orvane/transport/S3Error.h>

#include "support/Test.h"

namespace orvane::testing {
namespace {

using Tags = std::vector<TagWithConfidence>;

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
  std::vector<UploadRecord> records;
  for (int i = 0; i < 300; ++i) {
    const auto asset = std::to_string(i);
    ASSERT_TRUE(database_.upsertTag(asset, "tag " + asset, 1, own_));
    records.emplace_back(asset, "name " + asset, UploadStatus::completed, 1, 1);
  }
  UploadStore::shared().upsertBatch(records);
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
  EXPECT_EQ(uploaded->tagCount, 302);
  std::map<std::string, tagsync::TagLine> lines;
  tagsync::TagObjectReader object(request.body);
  for (tagsync::TagLine read; object.next(read);) lines[read.assetId.value()] = read;
  ASSERT_EQ(lines.size(), 302U);
  for (const auto& record : records) {
    EXPECT_EQ(lines[record.id()].s3Key, record.filename());
    EXPECT_EQ(lines[record.id()].tags, (Tags{{"tag " + record.id(), 1}}));
  }
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
                  "[TagSync] Upload complete: 302 tags, " + size + " bytes, ETag: tag"));
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

}  // namespace
}  // namespace orvane::testing
