#include <gtest/gtest.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/S3Uploader.h>

#include <future>
#include <thread>

#include "support/FaultServer.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/TemporaryDirectory.h"

namespace orvane {
namespace {

using testing::answer;
using testing::configFor;
using testing::FaultServer;
using testing::Reaction;

const S3Config kNoUrl = configFor("http://bad host");

Bytes bytes(std::string_view text) {
  const auto view = bytesOf(text);
  return {view.begin(), view.end()};
}

Result<std::string> uploadData(const S3Config& config, std::string_view text) {
  return testing::run(S3Uploader::uploadData(bytes(text), "k 1", "image/jpeg", config));
}

struct FileUpload {
  std::vector<std::int64_t> sent;
  Result<void> result = std::unexpected(Error("none", 0, ""));
  std::thread::id completedOn;
};

FileUpload uploadFile(const std::filesystem::path& file, const S3Config& config) {
  FileUpload upload;
  std::promise<void> done;
  S3Uploader::upload(
      file, "k", "text/plain", config,
      [&](std::int64_t sent, std::int64_t /*total*/) { upload.sent.push_back(sent); },
      [&](Result<void> result) {
        upload.result = std::move(result);
        upload.completedOn = std::this_thread::get_id();
        done.set_value();
      });
  done.get_future().get();
  return upload;
}

Error errorOf(const auto& result) { return result ? Error("none", 0, "success") : result.error(); }

TEST(S3Uploader, UploadDataSendsTheSignedBytesAndYieldsTheETag) {
  FaultServer server;
  server.queue(answer(200, "", {{"ETag", "\"\"abc\"\""}}));
  EXPECT_EQ(uploadData(configFor(server.url(), "p/"), "hello"), "abc");
  const auto seen = server.requests().at(0);
  EXPECT_EQ(seen.method() + " " + seen.target(), "PUT /photos/p/k%201");
  EXPECT_EQ(seen.body, "hello");
  EXPECT_EQ(seen.header("Content-Type"), "image/jpeg");
  EXPECT_EQ(seen.header("Host"), "127.0.0.1");
  EXPECT_EQ(seen.header("x-amz-content-sha256"),
            "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824");
}

TEST(S3Uploader, UploadDataReportsEveryOutcome) {
  FaultServer server;
  EXPECT_EQ(errorOf(uploadData(kNoUrl, "x")), S3Error::invalidURL());
  EXPECT_EQ(uploadData(configFor(server.url(), "p/"), ""), "");  // No ETag field.
  for (const int status : {300, 307, 403, 500}) {
    server.queue(answer(status, "<Error/>"));
    EXPECT_EQ(errorOf(uploadData(configFor(server.url(), "p/"), "x")), S3Error::httpError(status));
  }
  FaultServer resetting([](const auto&) { return testing::resetAfter(0); });
  EXPECT_EQ(errorOf(uploadData(configFor(resetting.url()), "x")).code(), -1005);
}

TEST(S3Uploader, UploadSendsAWholeFileWithProgress) {
  FaultServer server;
  const auto file = testing::testDirectory() / "f";
  testing::writeFile(file, std::string(3'000'000, 'f'));
  const auto upload = uploadFile(file, configFor(server.url(), "p/"));
  EXPECT_TRUE(upload.result);
  EXPECT_EQ(upload.sent.back(), 3'000'000);
  EXPECT_EQ(server.requests().at(0).body.size(), 3'000'000U);
  EXPECT_EQ(server.requests().at(0).header("Content-Length"), "3000000");

  testing::writeFile(file, "");
  EXPECT_TRUE(uploadFile(file, configFor(server.url(), "p/")).result);
  EXPECT_EQ(server.requests().at(1).header("Content-Length"), "0");
  EXPECT_EQ(server.requests().at(1).header("x-amz-content-sha256"),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(server.connectionCount(), 2U);  // Each upload has a session of its own.
}

TEST(S3Uploader, UploadFailsEarlyOnTheCallersThread) {
  FaultServer server;
  const auto directory = testing::testDirectory();
  const auto here = std::this_thread::get_id();
  for (const auto& file : {directory / "missing", directory}) {
    const auto upload = uploadFile(file, configFor(server.url(), "p/"));
    EXPECT_EQ(errorOf(upload.result), S3Error::fileReadError());
    EXPECT_EQ(upload.completedOn, here);
  }
  const auto upload = uploadFile(directory, kNoUrl);
  EXPECT_EQ(errorOf(upload.result), S3Error::invalidURL());
  EXPECT_EQ(upload.completedOn, here);
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(S3Uploader, UploadReportsFailuresAfterProgress) {
  FaultServer server;
  const auto file = testing::testDirectory() / "f";
  testing::writeFile(file, std::string(1'000'000, 'f'));
  server.queue(answer(500, "<Error/>"));
  const auto refused = uploadFile(file, configFor(server.url(), "p/"));
  EXPECT_EQ(errorOf(refused.result), S3Error::httpError(500));
  EXPECT_FALSE(refused.sent.empty());
  EXPECT_NE(refused.completedOn, std::this_thread::get_id());
  server.queue(testing::resetAfter(200'000));
  EXPECT_EQ(errorOf(uploadFile(file, configFor(server.url(), "p/")).result).code(), -1005);
}

TEST(S3Uploader, InitiateReadsTheUploadId) {
  FaultServer server;
  const auto config = configFor(server.url(), "p/");
  const auto initiate = [&](Reaction reaction) {
    server.queue(std::move(reaction));
    return S3Uploader::initiateMultipartUpload("k", "image/heic", config);
  };
  EXPECT_EQ(initiate(answer(200, "<R><UploadId>2~a/b+c=</UploadId></R>")), "2~a/b+c=");
  const auto seen = server.requests().at(0);
  EXPECT_EQ(seen.method() + " " + seen.target(), "POST /photos/p/k?uploads");
  EXPECT_EQ(seen.header("Content-Type"), "image/heic");
  EXPECT_EQ(seen.header("Content-Length"), "0");

  EXPECT_EQ(errorOf(initiate(answer(200, "<R/>"))), S3Error::serverError("Missing UploadId"));
  EXPECT_EQ(errorOf(initiate(answer(200))), S3Error::serverError("Missing UploadId"));
  EXPECT_EQ(errorOf(initiate(answer(503, "<UploadId>x</UploadId>"))), S3Error::httpError(503));
  FaultServer resetting([](const auto&) { return testing::resetAfter(0); });
  EXPECT_EQ(
      errorOf(S3Uploader::initiateMultipartUpload("k", "t", configFor(resetting.url()))).code(),
      -1005);
  EXPECT_EQ(errorOf(S3Uploader::initiateMultipartUpload("k", "t", kNoUrl)), S3Error::invalidURL());
}

TEST(S3Uploader, CompleteSendsSortedPartsAndReadsTheETag) {
  FaultServer server;
  const auto config = configFor(server.url(), "p/");
  const auto complete = [&](Reaction reaction) {
    server.queue(std::move(reaction));
    return S3Uploader::completeMultipartUpload("k", "2~a/b+c&=", {{3, "c"}, {1, "a"}, {3, "d"}},
                                               config);
  };
  EXPECT_EQ(complete(answer(200, "<R><ETag>\"&quot;abc-3&quot;\"</ETag><ETag>x</ETag></R>")),
            "abc-3");
  const auto seen = server.requests().at(0);
  EXPECT_EQ(seen.method() + " " + seen.target(), "POST /photos/p/k?uploadId=2~a%2Fb%2Bc%26%3D");
  EXPECT_EQ(seen.header("Content-Type"), "application/xml");
  EXPECT_EQ(seen.body,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CompleteMultipartUpload>\n"
            "  <Part>\n    <PartNumber>1</PartNumber>\n    <ETag>a</ETag>\n  </Part>\n"
            "  <Part>\n    <PartNumber>3</PartNumber>\n    <ETag>c</ETag>\n  </Part>\n"
            "  <Part>\n    <PartNumber>3</PartNumber>\n    <ETag>d</ETag>\n  </Part>\n"
            "</CompleteMultipartUpload>");

  EXPECT_EQ(complete(answer(200, "<Error><Code>InternalError</Code></Error>")), "");
  EXPECT_EQ(complete(answer(204)), "");
  EXPECT_EQ(errorOf(complete(answer(404))), S3Error::httpError(404));
  EXPECT_EQ(errorOf(S3Uploader::completeMultipartUpload("k", "u", {}, kNoUrl)),
            S3Error::invalidURL());
}

TEST(S3Uploader, AbortReturnsWhateverHappens) {
  FaultServer server;
  const auto config = configFor(server.url(), "p/");
  for (const auto& reaction : {testing::resetAfter(0), answer(204), answer(500)}) {
    server.queue(reaction);
    S3Uploader::abortMultipartUpload("k", "id", config);
  }
  S3Uploader::abortMultipartUpload("k", "id", kNoUrl);
  const auto seen = server.requests();
  ASSERT_EQ(seen.size(), 3U);
  EXPECT_EQ(seen.at(0).method() + " " + seen.at(0).target(), "DELETE /photos/p/k?uploadId=id");
}

}  // namespace
}  // namespace orvane
