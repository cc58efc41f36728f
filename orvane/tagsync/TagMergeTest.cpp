#include <orvane/tagsync/TagSyncError.h>

#include "TagSyncServiceTest.h"
#include "support/Test.h"

namespace orvane::testing {
namespace {

using Tags = std::vector<TagWithConfidence>;
using TagMergeTest = TagSyncServiceTest;

TEST_F(TagMergeTest, MergesOtherDevicesByObjectName) {
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

TEST_F(TagMergeTest, AnObjectIsReadAgainUnlessItsETagIsKnown) {
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

TEST_F(TagMergeTest, TagsOfARecordThatComesLaterComeWithTheObjectsNextChange) {
  list({"ONE"});
  answerObject("ONE", line("k", "mare") + line("later", "neve"));
  EXPECT_EQ(merge(), 1);
  UploadStore::shared().upsert({"new", "later", UploadStatus::completed, 1, 1});
  EXPECT_EQ(merge(), 0) << "the object has not changed";
  ASSERT_TRUE(database_.upsertRemoteETag("ONE", "another"));
  EXPECT_EQ(merge(), 2);
  EXPECT_THAT(database_.tagsForAsset("new").value(), ElementsAre("neve"));
}

TEST_F(TagMergeTest, TheListPrefixIsEncodedAndKeysAreNot) {
  auto elsewhere = config();
  elsewhere.prefix = "p \u00f2;+&=/";
  answerListing(answer(200, "<Contents><Key>p \u00f2;+&=/tags/U/tags.jsonl</Key></Contents>"));
  EXPECT_EQ(run(service_.downloadAllRemoteTags(elsewhere)), 0);
  EXPECT_EQ(server_.requests().at(0).target(),
            "/photos?list-type=2&prefix=p%20%C3%B2;%2B%26%3D/tags/&max-keys=1000");
  EXPECT_EQ(log_.lines().at(2), "[TagSync] Skipping device U: Tag download failed: Invalid URL");
}

TEST_F(TagMergeTest, ADeviceThatFailsIsPassedOver) {
  const std::vector<std::string> failing = {"GONE", "RESET", "HALF", "EMPTY", "BYTES", "ENDLESS"};
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
  answerObject("ENDLESS", {.answer = "HTTP/1.1 200 OK\r\n\r\n" + std::string(100'000, 'x'),
                           .end = Reaction::End::repeat});
  answerObject("GOOD", std::string(70'000'000, '\n') + line("k", "mare"));
  EXPECT_EQ(merge(), 1);
  EXPECT_THAT(database_.tagsForAsset("mine").value(), ElementsAre("mare"));
  for (const auto& uuid : failing) {
    EXPECT_EQ(database_.getRemoteETag(uuid).value(), std::nullopt) << uuid;
  }
  EXPECT_THAT(
      log_.lines(),
      ElementsAre("[TagSync] Starting cross-device tag download",
                  "[TagSync] Found 7 remote tag files (excluding own device)",
                  "[TagSync] Skipping device GONE: Tag download failed: HTTP error: 404",
                  StartsWith("[TagSync] Skipping device RESET: "),
                  StartsWith("[TagSync] Skipping device HALF: "),
                  "[TagSync] Skipping device ENDLESS: The server's answer is longer than allowed",
                  "[TagSync] Remote device GOOD: applied 1 tags",
                  "[TagSync] Cross-device download complete: 1 total tags applied"));
}

TEST_F(TagMergeTest, AListingThatFailsEndsTheRun) {
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

TEST_F(TagMergeTest, TagsThatCannotBeWrittenCountAndTheOthersStay) {
  // The last one takes a whole transaction with it.
  for (const std::string how : {"ABORT", "ROLLBACK"}) {
    const auto name = "'" + how + "'";
    execute("CREATE TRIGGER " + name + " BEFORE INSERT ON asset_tags WHEN NEW.tag = " + name +
            " BEGIN SELECT RAISE(" + how + ", 'refused'); END");
  }
  std::string object;
  for (const std::string tag : {"a", "ABORT", "b", "ROLLBACK", "c", "ROLLBACK", "ROLLBACK", "d"}) {
    object += line("k", tag);
  }
  const std::string longest(1024, 'l');
  object += line("k", longest + "l") + line("k", longest);
  list({"ONE"});
  answerObject("ONE", object);
  EXPECT_EQ(merge(), 10);
  EXPECT_THAT(database_.tagsForAsset("mine").value(),
              UnorderedElementsAre("a", "b", "c", "d", longest));
  EXPECT_EQ(database_.getRemoteETag("ONE").value(), "e-ONE");
}

/// Of single writes two at most would give up after 3 seconds each, and the third would be in time.
TEST_F(TagMergeTest, ALockOfSecondsCostsNoMoreTagsThanSingleWritesWould) {
  constexpr std::size_t kTags = 1000;
  std::string object;
  for (std::size_t i = 0; i < kTags; ++i) object += line("k", std::to_string(i));
  list({"ONE"});
  answerObject("ONE", object);
  std::future<Result<std::int64_t>> merged;
  ASSERT_TRUE(otherConnection()->write([&](platform::Database&) -> Result<void> {
    merged = std::async(std::launch::async, [&] { return merge(); });
    server_.waitForRequests(2);
    std::this_thread::sleep_for(4500ms);
    return {};
  }));
  EXPECT_EQ(merged.get(), kTags) << "tags that are lost count";
  EXPECT_GE(database_.tagsForAsset("mine").value().size(), kTags - 2);
  EXPECT_EQ(merge(), 0) << "an object is merged once, whatever could be written of it";
}

TEST_F(TagMergeTest, CancellingEndsTheRun) {
  answerObject("STALLED", stallAfter(0));
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

}  // namespace
}  // namespace orvane::testing
