#include <orvane/transport/S3Uploader.h>

#include <orvane/transport/S3Error.h>

#include "support/Test.h"

namespace orvane {
namespace {

const S3Config kNoUrl = configFor("http://bad host");

Result<std::string> uploadData(std::string_view text, const S3Config& config) {
  const auto view = bytesOf(text);
  return testing::run(
      S3Uploader::uploadData({view.begin(), view.end()}, "k 1", "image/jpeg", config));
}

Result<std::string> initiate(const S3Config& config) {
  return S3Uploader::initiateMultipartUpload("k", "image/heic", config);
}

Result<std::string> complete(const S3Config& config) {
  return S3Uploader::completeMultipartUpload("k", "2~a/b+c&=", {{3, "c"}, {1, "a"}, {3, "d"}},
                                             config);
}

struct FileUpload {
  std::vector<std::int64_t> sent;
  std::thread::id completedOn;
  Result<void> result;
};

FileUpload upload(const fs::path& file, const S3Config& config) {
  FileUpload upload;
  std::promise<void> done;
  S3Uploader::upload(
      file, "k", "text/plain", config,
      [&](std::int64_t sent, std::int64_t /*total*/) { upload.sent.push_back(sent); },
      [&](const Result<void>& result) {
        upload.result = result;
        upload.completedOn = std::this_thread::get_id();
        done.set_value();
      });
  done.get_future().get();
  return upload;
}

/// A server that answers 200 unless told otherwise.
class S3UploaderTest : public ::testing::Test {
 protected:
  std::string requestLine(std::size_t index) {
    const auto seen = server.requests().at(index);
    return seen.method() + " " + seen.target();
  }

  FaultServer server;
  const S3Config config = configFor(server.url(), "p/");
  const fs::path file = testDirectory() / "f";
};

TEST_F(S3UploaderTest, UploadDataSendsTheSignedBytesAndYieldsTheETag) {
  server.queue(answer(200, "", {{"ETag", "\"\"abc\"\""}}));
  EXPECT_EQ(uploadData("hello", config), "abc");
  EXPECT_EQ(requestLine(0), "PUT /photos/p/k%201");
  const auto seen = server.requests().at(0);
  EXPECT_EQ(seen.body, "hello");
  EXPECT_EQ(seen.header("Content-Type"), "image/jpeg");
  EXPECT_EQ(seen.header("Host"), "127.0.0.1");
  EXPECT_EQ(seen.header("x-amz-content-sha256"),
            "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824");
}

TEST_F(S3UploaderTest, CompleteSendsSortedParts) {
  EXPECT_TRUE(initiate(config) || complete(config));
  EXPECT_EQ(requestLine(0), "POST /photos/p/k?uploads");
  EXPECT_EQ(server.requests().at(0).header("Content-Type"), "image/heic");
  EXPECT_EQ(server.requests().at(0).header("Content-Length"), "0");
  EXPECT_EQ(requestLine(1), "POST /photos/p/k?uploadId=2~a%2Fb%2Bc%26%3D");
  EXPECT_EQ(server.requests().at(1).header("Content-Type"), "application/xml");
  EXPECT_EQ(server.requests().at(1).body,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CompleteMultipartUpload>\n"
            "  <Part>\n    <PartNumber>1</PartNumber>\n    <ETag>a</ETag>\n  </Part>\n"
            "  <Part>\n    <PartNumber>3</PartNumber>\n    <ETag>c</ETag>\n  </Part>\n"
            "  <Part>\n    <PartNumber>3</PartNumber>\n    <ETag>d</ETag>\n  </Part>\n"
            "</CompleteMultipartUpload>");
}

TEST_F(S3UploaderTest, CallsReportWhatTheStoreAnswers) {
  using Call = std::function<Result<std::string>(const S3Config&)>;
  const Call data = std::bind_front(uploadData, "x");
  const std::tuple<Call, Reaction, std::string> cases[] = {
      {data, answer(200), ""},
      {initiate, answer(200, "<R><UploadId>2~a/b+c=</UploadId></R>"), "2~a/b+c="},
      {initiate, answer(200, "<R/>"), "Missing UploadId"},
      {initiate, answer(200), "Missing UploadId"},
      {complete, answer(200, "<ETag>\"&quot;abc-3&quot;\"</ETag><ETag>x</ETag>"), "abc-3"},
      {complete, answer(200, "<Error><Code>E</Code></Error>"), ""},
      {complete, answer(204), ""}};
  for (const auto& [call, reaction, expected] : cases) {
    server.queue(reaction);
    const auto result = call(config);
    EXPECT_EQ(result ? *result : result.error().description(), expected);
    for (const int status : {300, 403, 500}) {
      server.queue(answer(status, "<UploadId>x</UploadId>", {{"ETag", "x"}}));
      EXPECT_EQ(call(config), std::unexpected(S3Error::httpError(status)));
    }
    server.queue(testing::resetAfter(0));
    EXPECT_EQ(call(config).error().code(), -1005);
    EXPECT_EQ(call(kNoUrl), std::unexpected(S3Error::invalidURL()));
  }
}

TEST_F(S3UploaderTest, UploadSendsAWholeFileWithProgressBeforeItsOutcome) {
  writeFile(file, std::string(3'000'000, 'f'));
  const auto large = upload(file, config);
  EXPECT_TRUE(large.result);
  EXPECT_EQ(large.sent.back(), 3'000'000);
  EXPECT_NE(large.completedOn, std::this_thread::get_id());
  EXPECT_EQ(server.requests().at(0).body.size(), 3'000'000U);
  server.queue(answer(500));
  const auto refused = upload(file, config);
  EXPECT_EQ(refused.result, std::unexpected(S3Error::httpError(500)));
  EXPECT_FALSE(refused.sent.empty());
  server.queue(testing::resetAfter(200'000));
  EXPECT_EQ(upload(file, config).result.error().code(), -1005);
  writeFile(file, "");
  EXPECT_TRUE(upload(file, config).result);
  EXPECT_EQ(server.requests().at(3).header("Content-Length"), "0");
  EXPECT_EQ(server.connectionCount(), 4U);  // Each upload has a session of its own.
}

TEST_F(S3UploaderTest, UploadFailsEarlyOnTheCallersThread) {
  const std::pair<fs::path, S3Config> cases[] = {{testDirectory() / "missing", config},
                                                 {testDirectory(), kNoUrl}};
  for (const auto& [path, uploadConfig] : cases) {
    const auto failed = upload(path, uploadConfig);
    EXPECT_EQ(failed.result.error().description(),
              path == testDirectory() ? "Invalid S3 URL" : "Unable to read file");
    EXPECT_EQ(failed.completedOn, std::this_thread::get_id());
  }
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(S3UploaderTest, BodiesThatNobodyReadsMayBeEndless) {
  FaultServer endless([](const auto&) -> Reaction {
    return {.answer =
                "HTTP/1.1 200 OK\r\nETag: tag\r\n\r\n<ETag>abc</ETag>" + std::string(100'000, 'x'),
            .end = testing::Reaction::End::repeat};
  });
  writeFile(file, "x");
  EXPECT_EQ(uploadData("x", configFor(endless.url())), "tag");
  EXPECT_TRUE(upload(file, configFor(endless.url())).result);
  EXPECT_EQ(complete(configFor(endless.url())), "abc");
}

TEST_F(S3UploaderTest, AbortReturnsWhateverHappens) {
  for (const auto& reaction : {testing::resetAfter(0), answer(204), answer(500)}) {
    server.queue(reaction);
    S3Uploader::abortMultipartUpload("k", "id", config);
  }
  S3Uploader::abortMultipartUpload("k", "id", kNoUrl);
  EXPECT_EQ(server.requests().size(), 3U);
  EXPECT_EQ(requestLine(0), "DELETE /photos/p/k?uploadId=id");
}

}  // namespace
}  // namespace orvane
