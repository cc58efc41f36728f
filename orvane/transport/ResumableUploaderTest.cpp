#include <orvane/transport/ResumableUploader.h>

#include <orvane/platform/base/Digest.h>
#include <orvane/platform/base/Md5.h>
#include <orvane/platform/files/FileVersion.h>
#include <orvane/transport/S3MultipartUploader.h>

#include "support/FaultServer.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/Test.h"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>

namespace orvane {
namespace {

using testing::answer;
using testing::FaultServer;
using testing::Reaction;
using testing::RecordedRequest;
using Lines = std::vector<std::string>;

constexpr std::int64_t kPart = S3MultipartUploader::chunkSize;
constexpr std::int64_t kLastPart = 1'000'000;
constexpr std::int64_t kFileSize = 2 * kPart + kLastPart;
const std::string kChanged = "The file changed while it was being uploaded";

std::string md5OfZeros(std::int64_t size) {
  return platform::hexString(platform::md5(Bytes(static_cast<std::size_t>(size))));
}
const std::string kMd5OfPart = md5OfZeros(kPart);

std::filesystem::path fileOfZeros(std::int64_t size) {
  const auto file = testing::testDirectory() / "file";
  std::filesystem::remove(file);
  testing::writeFile(file, "");
  std::filesystem::resize_file(file, static_cast<std::uintmax_t>(size));
  return file;
}

/// The request line without what all requests have in common.
std::string lineOf(const RecordedRequest& request) {
  return request.method() + request.target().substr(std::string("/photos/k").size());
}

Reaction lostResponse() { return {.answer = "", .end = Reaction::End::close}; }

Reaction headOf(std::int64_t size, const std::string& eTag) {
  return {.answer = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\nETag: \"" +
                    eTag + "\"\r\n\r\n"};
}

std::string listedPart(int number, std::int64_t size, const std::string& eTag) {
  return "<Part><PartNumber>" + std::to_string(number) + "</PartNumber><ETag>&quot;" + eTag +
         "&quot;</ETag><Size>" + std::to_string(size) + "</Size></Part>";
}

/// What a store does that knows of no object and no upload but the one begun.
Reaction wellBehaved(const std::string& line) {
  if (line == "POST?uploads") return answer(200, "<UploadId>new</UploadId>");
  if (line.starts_with("POST")) return answer(200, "<ETag>&quot;whole-3&quot;</ETag>");
  if (line.starts_with("PUT?")) return answer(200, "", {{"ETag", "\"" + line + "\""}});
  if (line.starts_with("PUT")) return answer(200, "", {{"ETag", "\"small\""}});
  if (line.starts_with("DELETE")) return answer(204);
  return answer(404);
}

UploadCheckpoint checkpointOf(const std::filesystem::path& file,
                              std::map<std::int64_t, std::string> parts) {
  const auto version = platform::versionOf(file).value();
  return {.uploadId = "old",
          .fileSize = version.size,
          .modified = version.modified,
          .parts = std::move(parts)};
}

const Lines kParts = {"PUT?partNumber=1&uploadId=new", "PUT?partNumber=2&uploadId=new",
                      "PUT?partNumber=3&uploadId=new"};
const std::string kInitiate = "POST?uploads";
const std::string kComplete = "POST?uploadId=new";
const std::string kAbort = "DELETE?uploadId=new";
const std::string kList = "GET?uploadId=old&part-number-marker=0";
/// The ETag of an object of three parts whose ETags are those of `wellBehaved` is not to be
/// foreseen; of three parts that are MD5 sums it is.
std::string eTagOfZeros() {
  Bytes sums;
  for (const auto size : {kPart, kPart, kLastPart}) {
    const auto sum = platform::md5(Bytes(static_cast<std::size_t>(size)));
    sums.insert(sums.end(), sum.begin(), sum.end());
  }
  return platform::hexString(platform::md5(sums)) + "-3";
}

struct Case {
  std::string what;
  /// Requests in the order in which they come, and what the store does instead of behaving well.
  std::vector<std::pair<std::string, Reaction>> faults;
  Lines requests;
  std::string outcome = "whole-3";  ///< The ETag, or the error's sentence.
  std::optional<std::map<std::int64_t, std::string>> resumed = {};  ///< The checkpoint's parts.
  std::int64_t fileSize = kFileSize;
};

std::string outcomeOf(const Result<std::string>& result) {
  return result ? *result : result.error().description();
}

void check(const Case& test) {
  SCOPED_TRACE(test.what);
  auto faults = test.faults;
  std::mutex mutex;
  FaultServer server([&](const RecordedRequest& request) {
    const std::lock_guard lock(mutex);
    const auto line = lineOf(request);
    const auto fault = std::ranges::find(faults, line, &decltype(faults)::value_type::first);
    if (fault == faults.end()) return wellBehaved(line);
    auto reaction = std::move(fault->second);
    faults.erase(fault);
    return reaction;
  });
  const auto file = fileOfZeros(test.fileSize);
  ResumableUploader uploader(testing::configFor(server.url()),
                             {.partsInFlight = 1, .firstRetryDelay = 1ms});
  std::optional<UploadCheckpoint> from;
  if (test.resumed) from = checkpointOf(file, *test.resumed);
  EXPECT_EQ(outcomeOf(testing::run(uploader.upload(file, "k", "image/jpeg", from))), test.outcome);
  Lines lines;
  for (const auto& request : server.requests()) lines.push_back(lineOf(request));
  EXPECT_EQ(lines, test.requests);
  EXPECT_TRUE(faults.empty());
}

TEST(ResumableUploader, TriesAgainWhatMayPassAndAbortsWhatMayNot) {
  const Lines begun = {kInitiate, kParts[0], kParts[1]};
  const auto with = [](Lines lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
  };
  const Lines sent = with(begun, {kParts[2]});
  const auto busy = [] { return answer(503); };
  const std::string error = "<Error><Code>InternalError</Code></Error>";
  const std::string invalid = "<Error><Code>InvalidPart</Code></Error>";
  const std::vector<Case> cases = {
      {"all is well", {}, with(sent, {kComplete})},
      {"no upload", {{kInitiate, answer(403)}}, {kInitiate}, "HTTP error 403"},
      {"no identifier", {{kInitiate, answer(200)}}, {kInitiate}, "Missing UploadId"},
      {"a busy store", {{kParts[1], busy()}}, with(begun, {kParts[1], kParts[2], kComplete})},
      {"a lost response",
       {{kParts[1], lostResponse()}},
       with(begun, {kParts[1], kParts[2], kComplete})},
      {"a store that stays busy",
       {{kParts[1], busy()}, {kParts[1], busy()}, {kParts[1], busy()}, {kParts[1], busy()}},
       with(begun, {kParts[1], kParts[1], kParts[1]}),
       "HTTP error 503"},
      {"a refused part", {{kParts[1], answer(400)}}, with(begun, {kAbort}), "HTTP error 400"},
      {"a part without ETag", {{kParts[1], answer(200)}}, with(begun, {kAbort}), "Missing ETag"},
      {"an error in the response of 200",
       {{kComplete, answer(200, error)}},
       with(sent, {kComplete, "HEAD", kComplete})},
      {"a final one",
       {{kComplete, answer(200, invalid)}},
       with(sent, {kComplete, "HEAD", kAbort}),
       "The upload cannot be completed: InvalidPart"},
      {"the ETag only later",
       {{kComplete, answer(200, "<ETag></ETag>")}, {"HEAD", headOf(kFileSize, "later-3")}},
       with(sent, {kComplete, "HEAD"}),
       "later-3"},
      {"completed, but the response is lost",
       {{kComplete, lostResponse()},
        {"HEAD", answer(404)},
        {kComplete, answer(404)},
        {"HEAD", headOf(kFileSize, "found-3")}},
       with(sent, {kComplete, "HEAD", kComplete, "HEAD"}),
       "found-3"},
      {"another object under the key",
       {{kComplete, answer(404)}, {"HEAD", headOf(kFileSize - 1, "found-3")}},
       with(with(sent, {kComplete, "HEAD", kAbort}), with(sent, {kComplete}))},
      {"forgotten twice",
       {{kParts[0], answer(404)}, {kParts[0], answer(404)}},
       {kInitiate, kParts[0], kAbort, kInitiate, kParts[0], kAbort},
       "HTTP error 404"},
      {"another region",
       {{kInitiate, answer(301, "", {{"x-amz-bucket-region", "eu-west-9"}})}},
       {kInitiate},
       "The bucket is in the region eu-west-9"},
  };
  for (const auto& test : cases) check(test);
}

TEST(ResumableUploader, GoesOnWithWhatStoreFileAndCheckpointAgreeOn) {
  const auto list = [](const std::string& parts) { return answer(200, parts); };
  const auto put = [](int number) {
    return "PUT?partNumber=" + std::to_string(number) + "&uploadId=old";
  };
  const std::string completeOld = "POST?uploadId=old";
  const Lines anew = {kInitiate, kParts[0], kParts[1], kParts[2], kComplete};
  const auto after = [&](Lines lines) {
    lines.insert(lines.end(), anew.begin(), anew.end());
    return lines;
  };
  const std::map<std::int64_t, std::string> whole = {
      {1, kMd5OfPart}, {2, kMd5OfPart}, {3, md5OfZeros(kLastPart)}};
  const std::vector<Case> cases = {
      {"one part of three",
       {{kList, list(listedPart(1, kPart, "a") + listedPart(2, kPart, "other") +
                     listedPart(3, kPart, "c"))}},
       {kList, put(2), put(3), completeOld},
       "whole-3",
       {{{1, "a"}, {2, "b"}, {3, "c"}}}},
      {"in two pages",
       {{kList, list("<IsTruncated>true</IsTruncated><NextPartNumberMarker>1"
                     "</NextPartNumberMarker>" +
                     listedPart(1, kPart, kMd5OfPart))},
        {"GET?uploadId=old&part-number-marker=1", list(listedPart(2, kPart, kMd5OfPart))}},
       {kList, "GET?uploadId=old&part-number-marker=1", put(3), completeOld},
       "whole-3",
       whole},
      {"a list that does not advance",
       {{kList, list("<IsTruncated>true</IsTruncated><NextPartNumberMarker>0"
                     "</NextPartNumberMarker>")}},
       {kList, put(1), put(2), put(3), completeOld},
       "whole-3",
       whole},
      {"other bytes by now",
       {{kList, list(listedPart(1, kPart, std::string(32, 'a')))}},
       after({kList, "DELETE?uploadId=old"}),
       "whole-3",
       {{{1, std::string(32, 'a')}}}},
      {"an upload that is gone", {{kList, answer(404)}}, after({kList}), "whole-3", {{{1, "a"}}}},
      {"an upload that is complete",
       {{kList, answer(404)}, {"HEAD", headOf(kFileSize, eTagOfZeros())}},
       {kList, "HEAD"},
       eTagOfZeros(),
       whole},
      {"a list that cannot be had", {{kList, answer(403)}}, {kList}, "HTTP error 403", whole},
  };
  for (const auto& test : cases) check(test);
}

TEST(ResumableUploader, AsksForASmallObjectBeforeItSendsItAgain) {
  const auto md5 = md5OfZeros(1000);
  const std::vector<Case> cases = {
      {"there", {{"PUT", lostResponse()}, {"HEAD", headOf(1000, md5)}}, {"PUT", "HEAD"}, md5},
      {"not there", {{"PUT", lostResponse()}}, {"PUT", "HEAD", "PUT"}, "small"},
      {"another",
       {{"PUT", answer(500)}, {"HEAD", headOf(1000, "x")}},
       {"PUT", "HEAD", "PUT"},
       "small"},
  };
  for (auto test : cases) {
    test.fileSize = 1000;
    check(test);
  }
}

TEST(ResumableUploader, MakesNoObjectOfAFileThatChanges) {
  const auto file = fileOfZeros(kFileSize);
  std::atomic<bool> changed = false;
  const auto change = [&](const std::string& line) {
    if (line == kParts[1] && !changed.exchange(true))
      testing::writeFile(file, std::string(kFileSize, 'x'));
    return wellBehaved(line);
  };
  const FaultServer server([&](const RecordedRequest& request) { return change(lineOf(request)); });
  ResumableUploader uploader(testing::configFor(server.url()), {.partsInFlight = 1});
  EXPECT_EQ(outcomeOf(testing::run(uploader.upload(file, "k", "image/jpeg"))), kChanged);
  EXPECT_EQ(lineOf(server.requests().back()), kAbort);

  const auto other = checkpointOf(file, {{1, "a"}});
  fileOfZeros(kFileSize + 1);
  EXPECT_EQ(outcomeOf(testing::run(uploader.upload(file, "k", "image/jpeg", other))), "whole-3");
  EXPECT_EQ(lineOf(server.requests()[5]), "DELETE?uploadId=old");
}

TEST(ResumableUploader, LeavesWhatIsAcceptedToAnotherWhenItIsCancelled) {
  FaultServer server([](const RecordedRequest& request) { return wellBehaved(lineOf(request)); });
  ResumableUploader uploader(testing::configFor(server.url()), {.partsInFlight = 2});
  boost::asio::io_context host;
  boost::asio::cancellation_signal stop;
  UploadCheckpoint reached;
  auto upload = uploader.upload(fileOfZeros(kFileSize), "k", "image/jpeg", {},
                                {.checkpoint = [&](const UploadCheckpoint& now) {
                                  reached = now;
                                  if (!now.parts.empty()) {
                                    stop.emit(boost::asio::cancellation_type::terminal);
                                  }
                                }});
  auto result = boost::asio::co_spawn(
      host, std::move(upload),
      boost::asio::bind_cancellation_slot(stop.slot(), boost::asio::use_future));
  host.run();
  EXPECT_EQ(result.get().error().code(), -999);
  EXPECT_EQ(reached.parts.size(), 1U);
  for (const auto& request : server.requests()) EXPECT_NE(request.method(), "DELETE");
}

TEST(ResumableUploader, SignsWithTheStoresTimeWhereTheClocksDiffer) {
  FaultServer server([](const RecordedRequest& request) { return wellBehaved(lineOf(request)); });
  server.queue(answer(403, "", {{"Date", "Wed, 01 Jan 2031 10:00:00 GMT"}}));
  ResumableUploader uploader(testing::configFor(server.url()));
  ASSERT_TRUE(testing::run(uploader.upload(fileOfZeros(1), "k", "image/jpeg")));
  ASSERT_TRUE(testing::run(uploader.upload(fileOfZeros(1), "k", "image/jpeg")));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_THAT(requests[1].header("x-amz-date").value(), ::testing::StartsWith("20310101T10"));
  EXPECT_THAT(requests[2].header("x-amz-date").value(), ::testing::StartsWith("20310101T10"));
}

}  // namespace
}  // namespace orvane
