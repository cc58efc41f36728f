#include <gtest/gtest.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/S3MultipartUploader.h>

#include <filesystem>
#include <future>
#include <mutex>
#include <optional>
#include <thread>

#include "support/FaultServer.h"
#include "support/StoreConfig.h"
#include "support/TemporaryDirectory.h"

namespace orvane {
namespace {

using testing::answer;
using testing::answerText;
using testing::configFor;
using testing::FaultServer;
using testing::Gate;
using testing::Reaction;
using testing::RecordedRequest;

constexpr std::int64_t kChunk = S3MultipartUploader::chunkSize;

/// What a well-behaved store does.
Reaction wellBehaved(const RecordedRequest& request) {
  if (request.target().ends_with("?uploads")) return answer(200, "<UploadId>id</UploadId>");
  if (request.method() == "DELETE") return answer(204);
  return answer(200, "", {{"ETag", "\"tag\""}});
}

std::filesystem::path fileOfSize(std::int64_t size) {
  const auto file = testing::testDirectory() / "file";
  testing::writeFile(file, "");
  std::filesystem::resize_file(file, static_cast<std::uintmax_t>(size));
  return file;
}

struct Outcome {
  std::vector<std::pair<std::int64_t, std::int64_t>> progress;
  std::optional<Error> error;
  std::thread::id completedOn;
};

/// Starts an upload; the future is ready once completion has been called. A second completion
/// throws, which ends the test's process.
std::future<Outcome> start(S3MultipartUploader& uploader, const std::filesystem::path& file,
                           std::function<void(std::int64_t)> onProgress = {}) {
  struct Shared {
    std::promise<Outcome> promise;
    Outcome outcome;
  };
  auto shared = std::make_shared<Shared>();
  uploader.upload(
      file, "k", "image/jpeg",
      [shared, onProgress](std::int64_t sent, std::int64_t total) {
        shared->outcome.progress.emplace_back(sent, total);
        if (onProgress) onProgress(sent);
      },
      [shared](const Result<void>& result) {
        if (!result) shared->outcome.error = result.error();
        shared->outcome.completedOn = std::this_thread::get_id();
        shared->promise.set_value(shared->outcome);
      });
  return shared->promise.get_future();
}

Outcome upload(const S3Config& config, const std::filesystem::path& file) {
  S3MultipartUploader uploader(config);
  return start(uploader, file).get();
}

/// "METHOD target" of every request, in order.
std::vector<std::string> requestLines(const FaultServer& server) {
  std::vector<std::string> lines;
  for (const auto& seen : server.requests()) lines.push_back(seen.method() + " " + seen.target());
  return lines;
}

using Progress = std::vector<std::pair<std::int64_t, std::int64_t>>;
using Lines = std::vector<std::string>;

TEST(S3MultipartUploader, SizeDecidesBetweenOneRequestAndParts) {
  const struct {
    std::int64_t size;
    Progress progress;
    Lines lines;
  } cases[] = {
      {0, {{0, 0}}, {"PUT /photos/k"}},
      {kChunk - 1, {{kChunk - 1, kChunk - 1}}, {"PUT /photos/k"}},
      {kChunk,
       {{kChunk, kChunk}},
       {"POST /photos/k?uploads", "PUT /photos/k?partNumber=1&uploadId=id",
        "POST /photos/k?uploadId=id"}},
      {kChunk + 1,
       {{kChunk, kChunk + 1}, {kChunk + 1, kChunk + 1}},
       {"POST /photos/k?uploads", "PUT /photos/k?partNumber=1&uploadId=id",
        "PUT /photos/k?partNumber=2&uploadId=id", "POST /photos/k?uploadId=id"}},
  };
  for (const auto& [size, progress, lines] : cases) {
    FaultServer server(wellBehaved);
    const auto outcome = upload(configFor(server.url()), fileOfSize(size));
    EXPECT_FALSE(outcome.error);
    EXPECT_EQ(outcome.progress, progress);
    EXPECT_EQ(requestLines(server), lines);
    std::size_t sent = 0;
    for (const auto& seen : server.requests())
      sent += seen.method() == "PUT" ? seen.body.size() : 0;
    EXPECT_EQ(sent, static_cast<std::size_t>(size));
  }
}

TEST(S3MultipartUploader, SendsTypesAndUnquotedETags) {
  FaultServer server(wellBehaved);
  ASSERT_FALSE(upload(configFor(server.url()), fileOfSize(kChunk)).error);
  const auto seen = server.requests();
  EXPECT_EQ(seen.at(0).header("Content-Type"), "image/jpeg");
  EXPECT_EQ(seen.at(1).header("Content-Type"), std::nullopt);
  EXPECT_EQ(seen.at(2).header("Content-Type"), "application/xml");
  EXPECT_NE(seen.at(2).body.find("<ETag>tag</ETag>"), std::string::npos);
  EXPECT_EQ(server.connectionCount(), 1U);
}

TEST(S3MultipartUploader, EarlyFailuresComeAtOnceAndSendNothing) {
  FaultServer server;
  const auto here = std::this_thread::get_id();
  const auto missing = upload(configFor(server.url()), testing::testDirectory() / "missing");
  EXPECT_EQ(missing.error, S3Error::fileReadError());
  EXPECT_EQ(missing.completedOn, here);
  const auto folder = upload(configFor(server.url()), testing::testDirectory());
  EXPECT_EQ(folder.error, S3Error::fileReadError());
  const auto noUrl = upload(configFor("http://bad host"), testing::testDirectory() / "missing");
  EXPECT_EQ(noUrl.error, S3Error::invalidURL());
  EXPECT_EQ(noUrl.completedOn, here);
  EXPECT_EQ(server.connectionCount(), 0U);
}

/// One request of an upload of three parts fails as `reaction` says.
struct FailingStep {
  std::size_t request;  ///< Which one, from 0: initiate, three parts, complete.
  Reaction reaction;
  std::string error;
  std::size_t progressCalls;
  bool aborted;
};

TEST(S3MultipartUploader, AFailedStepEndsTheUpload) {
  const FailingStep cases[] = {
      {0, answer(403), "HTTP error 403", 0, false},
      {0, answer(200, "<Empty/>"), "Missing UploadId", 0, false},
      {1, answer(200), "Missing ETag", 0, true},
      {3, answer(404), "HTTP error 404", 2, true},
      {2, answer(503, std::string(10'000'000, 'e')), "HTTP error 503", 1, true},
      {4, answer(400), "HTTP error 400", 3, false},
      {4, answer(200, "<Error><Code>InternalError</Code></Error>"), "", 3, false},
  };
  const auto file = fileOfSize(2 * kChunk + 5);
  for (const auto& [request, reaction, error, progressCalls, aborted] : cases) {
    std::mutex mutex;
    std::size_t seen = 0;
    FaultServer server([&](const RecordedRequest& recorded) {
      const std::lock_guard lock(mutex);
      return seen++ == request ? reaction : wellBehaved(recorded);
    });
    const auto outcome = upload(configFor(server.url()), file);
    EXPECT_EQ(outcome.error.has_value(), !error.empty());
    const auto description = outcome.error ? outcome.error->description() : "";
    EXPECT_TRUE(description.starts_with(error)) << description;
    EXPECT_EQ(outcome.progress.size(), progressCalls) << error;
    const auto lines = requestLines(server);
    EXPECT_EQ(lines.size(), request + 1 + (aborted ? 1 : 0)) << error;
    EXPECT_EQ(lines.back() == "DELETE /photos/k?uploadId=id", aborted) << error;
  }
}

TEST(S3MultipartUploader, ALostConnectionEndsTheUpload) {
  for (const auto& lost :
       {testing::resetAfter(1'000'000),
        Reaction{.answer = answerText(200), .sendAtMost = 9, .end = Reaction::End::reset}}) {
    FaultServer server([&](const RecordedRequest& request) {
      const bool second = request.target().find("partNumber=2") != std::string::npos;
      return second ? lost : wellBehaved(request);
    });
    const auto outcome = upload(configFor(server.url()), fileOfSize(3 * kChunk));
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->code(), -1005);
    EXPECT_EQ(outcome.progress, (Progress{{kChunk, 3 * kChunk}}));
    EXPECT_EQ(requestLines(server).back(), "DELETE /photos/k?uploadId=id");
  }
}

TEST(S3MultipartUploader, AFailedAbortKeepsThePartsError) {
  FaultServer server([](const RecordedRequest& request) {
    if (request.target().find("partNumber") != std::string::npos) return answer(500);
    return request.method() == "DELETE" ? testing::resetAfter(0) : wellBehaved(request);
  });
  EXPECT_EQ(upload(configFor(server.url()), fileOfSize(kChunk)).error, S3Error::httpError(500));
}

TEST(S3MultipartUploader, AFileThatChangesMeanwhileHasTheStatedOutcome) {
  const struct {
    std::string what;
    std::function<void(const std::filesystem::path&)> change;  ///< After the first request.
    std::optional<Error> error;
    std::size_t parts;
  } cases[] = {
      {"shrinks", [](const auto& file) { std::filesystem::resize_file(file, kChunk + 7); }, {}, 2},
      {"empties", [](const auto& file) { std::filesystem::resize_file(file, 0); }, {}, 0},
      {"vanishes", [](const auto& file) { std::filesystem::remove(file); },
       S3Error::fileReadError(), 0},
      {"becomes a folder",
       [](const auto& file) {
         std::filesystem::remove(file);
         std::filesystem::create_directory(file);
       },
       S3Error::fileReadError(), 0},
  };
  for (const auto& [what, change, error, parts] : cases) {
    const auto file = fileOfSize(3 * kChunk);
    FaultServer server([&](const RecordedRequest& request) {
      if (request.target().ends_with("?uploads")) change(file);
      return wellBehaved(request);
    });
    const auto outcome = upload(configFor(server.url()), file);
    EXPECT_EQ(outcome.error, error) << what;
    EXPECT_EQ(outcome.progress.size(), parts) << what;
    EXPECT_EQ(requestLines(server).back(),
              error ? "DELETE /photos/k?uploadId=id" : "POST /photos/k?uploadId=id");
    std::filesystem::remove_all(file);
  }
}

TEST(S3MultipartUploader, AnUploaderThatGoesDuringInitiateEndsSilently) {
  const Gate gate;
  FaultServer server;
  server.queue({.answer = answerText(200, "<UploadId>id</UploadId>"),
                .sendHold = Reaction::Hold{.at = 0, .gate = gate}});
  auto uploader = std::make_optional<S3MultipartUploader>(configFor(server.url()));
  auto outcome = start(*uploader, fileOfSize(kChunk));
  server.waitForRequests(1);
  uploader.reset();
  gate.open();
  // The answer lets go of the callbacks unused, which the future tells as a broken promise.
  EXPECT_THROW(outcome.get(), std::future_error);
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST(S3MultipartUploader, AnUploaderThatGoesLaterIsKeptAlive) {
  FaultServer server(wellBehaved);
  auto uploader = std::make_optional<S3MultipartUploader>(configFor(server.url()));
  const Gate gate;
  server.queue(answer(200, "<UploadId>id</UploadId>"));
  server.queue({.answer = answerText(200, "", {{"ETag", "t"}}),
                .sendHold = Reaction::Hold{.at = 0, .gate = gate}});
  auto outcome = start(*uploader, fileOfSize(kChunk + 1));
  server.waitForRequests(2);
  uploader.reset();
  gate.open();
  EXPECT_FALSE(outcome.get().error);
  EXPECT_EQ(server.requests().size(), 4U);
}

TEST(S3MultipartUploader, ManyUploadsShareOneUploader) {
  FaultServer server(wellBehaved);
  S3MultipartUploader uploader(configFor(server.url()));
  const auto file = fileOfSize(kChunk + 1);
  std::vector<std::future<Outcome>> outcomes;
  for (int i = 0; i < 24; ++i) outcomes.push_back(start(uploader, file));
  for (auto& outcome : outcomes) {
    const auto ended = outcome.get();
    EXPECT_FALSE(ended.error);
    EXPECT_EQ(ended.progress, (Progress{{kChunk, kChunk + 1}, {kChunk + 1, kChunk + 1}}));
  }
}

}  // namespace
}  // namespace orvane
