#include <orvane/transport/S3MultipartUploader.h>

#include <orvane/transport/S3Error.h>

#include "support/ChildProcess.h"
#include "support/FaultServer.h"
#include "support/MemoryGrowth.h"
#include "support/StoreConfig.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <filesystem>
#include <future>
#include <iostream>
#include <optional>
#include <thread>

namespace orvane {
namespace {

using testing::answer;
using testing::answerText;
using testing::configFor;
using testing::FaultServer;
using testing::Reaction;
using testing::RecordedRequest;
using Progress = std::vector<std::pair<std::int64_t, std::int64_t>>;
using Lines = std::vector<std::string>;

constexpr std::int64_t kChunk = S3MultipartUploader::chunkSize;
constexpr int kSideBySideUploads = 20;
const std::string kInitiate = "POST /photos/k?uploads";
const std::string kPart1 = "PUT /photos/k?partNumber=1&uploadId=id";
const std::string kPart2 = "PUT /photos/k?partNumber=2&uploadId=id";
const std::string kComplete = "POST /photos/k?uploadId=id";
const std::string kAbort = "DELETE /photos/k?uploadId=id";

/// What a well-behaved store does.
Reaction wellBehaved(const RecordedRequest& request) {
  if (request.target().ends_with("?uploads")) return answer(200, "<UploadId>id</UploadId>");
  if (request.method() == "DELETE") return answer(204);
  return answer(200, "", {{"ETag", "\"tag\""}});
}

std::filesystem::path fileOfSize(std::int64_t size) {
  const auto file = testing::testDirectory() / "file";
  std::filesystem::remove_all(file);
  testing::writeFile(file, "");
  std::filesystem::resize_file(file, static_cast<std::uintmax_t>(size));
  return file;
}

struct Outcome {
  Progress progress;
  std::optional<Error> error;
  std::thread::id completedOn;
};

/// Starts an upload; the future is ready once completion has been called. A second completion
/// throws, which ends the test's process.
std::future<Outcome> start(S3MultipartUploader& uploader, const std::filesystem::path& file) {
  const auto outcome = std::make_shared<Outcome>();
  const auto promise = std::make_shared<std::promise<Outcome>>();
  uploader.upload(
      file, "k", "image/jpeg",
      [outcome](std::int64_t sent, std::int64_t total) {
        outcome->progress.emplace_back(sent, total);
      },
      [outcome, promise](const Result<void>& result) {
        if (!result) outcome->error = result.error();
        outcome->completedOn = std::this_thread::get_id();
        promise->set_value(*outcome);
      });
  return promise->get_future();
}

Outcome upload(const S3Config& config, const std::filesystem::path& file) {
  S3MultipartUploader uploader(config);
  return start(uploader, file).get();
}

/// "METHOD target" of every request, in order.
Lines requestLines(const FaultServer& server) {
  Lines lines;
  for (const auto& seen : server.requests()) lines.push_back(seen.method() + " " + seen.target());
  return lines;
}

TEST(S3MultipartUploader, SizeDecidesBetweenOneRequestAndParts) {
  const std::tuple<std::int64_t, Progress, Lines> cases[] = {
      {0, {{0, 0}}, {"PUT /photos/k"}},
      {kChunk - 1, {{kChunk - 1, kChunk - 1}}, {"PUT /photos/k"}},
      {kChunk, {{kChunk, kChunk}}, {kInitiate, kPart1, kComplete}},
      {kChunk + 1,
       {{kChunk, kChunk + 1}, {kChunk + 1, kChunk + 1}},
       {kInitiate, kPart1, kPart2, kComplete}}};
  for (const auto& [size, progress, lines] : cases) {
    FaultServer server(wellBehaved);
    const auto outcome = upload(configFor(server.url()), fileOfSize(size));
    EXPECT_FALSE(outcome.error);
    EXPECT_EQ(outcome.progress, progress);
    EXPECT_EQ(requestLines(server), lines);
    EXPECT_EQ(server.connectionCount(), 1U);
    const auto seen = server.requests();
    EXPECT_EQ(seen.at(0).header("Content-Type"), "image/jpeg");
    if (size < kChunk) continue;
    EXPECT_EQ(seen.at(1).header("Content-Type"), std::nullopt);
    EXPECT_NE(seen.back().body.find("<ETag>tag</ETag>"), std::string::npos);
  }
}

TEST(S3MultipartUploader, EarlyFailuresComeAtOnceAndSendNothing) {
  const FaultServer server;
  const auto missing = testing::testDirectory() / "missing";
  const std::tuple<S3Config, std::filesystem::path, Error> cases[] = {
      {configFor(server.url()), missing, S3Error::fileReadError()},
      {configFor(server.url()), testing::testDirectory(), S3Error::fileReadError()},
      {configFor("http://bad host"), missing, S3Error::invalidURL()}};
  for (const auto& [config, file, error] : cases) {
    const auto outcome = upload(config, file);
    EXPECT_EQ(outcome.error, error);
    EXPECT_EQ(outcome.completedOn, std::this_thread::get_id());
  }
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(S3MultipartUploader, AFailedStepEndsTheUpload) {
  const std::string lost = "The connection was lost";
  const Reaction tornAnswer{
      .answer = answerText(200), .sendAtMost = 9, .end = Reaction::End::reset};
  const struct {
    std::string step;  ///< What fails, of a whole upload of three parts.
    Reaction reaction;
    std::string error;
    std::size_t progressCalls;
    bool aborted;
  } cases[] = {
      {"uploads", answer(403), "HTTP error 403", 0, false},
      {"uploads", answer(200, "<Empty/>"), "Missing UploadId", 0, false},
      {"partNumber=1", answer(200), "Missing ETag", 0, true},
      {"partNumber=3", answer(404), "HTTP error 404", 2, true},
      {"partNumber=2", answer(503, std::string(10'000'000, 'e')), "HTTP error 503", 1, true},
      {"partNumber=2", testing::resetAfter(1'000'000), lost, 1, true},
      {"partNumber=2", tornAnswer, lost, 1, true},
      {"k?uploadId", answer(400), "HTTP error 400", 3, false},
      {"k?uploadId", answer(200, "<Error/>"), "", 3, false}};
  const auto file = fileOfSize(2 * kChunk + 5);
  for (const auto& [step, reaction, error, progressCalls, aborted] : cases) {
    SCOPED_TRACE(step + " " + error);
    FaultServer server([&](const RecordedRequest& request) {
      // What becomes of the abort does not matter.
      if (request.method() == "DELETE") return testing::resetAfter(0);
      return request.target().find(step) != std::string::npos ? reaction : wellBehaved(request);
    });
    const auto outcome = upload(configFor(server.url()), file);
    const auto description = outcome.error ? outcome.error->description() : "";
    EXPECT_EQ(description.substr(0, description.find(" (")), error);
    EXPECT_EQ(outcome.progress.size(), progressCalls);
    auto lines = requestLines(server);
    EXPECT_EQ(lines.back() == kAbort, aborted);
    if (aborted) lines.pop_back();
    EXPECT_NE(lines.back().find(step), std::string::npos);
  }
}

TEST(S3MultipartUploader, AFileThatChangesMeanwhileHasTheStatedOutcome) {
  using File = std::filesystem::path;
  const struct {
    const char* what;
    void (*change)(const File&);  ///< After the first request.
    std::optional<Error> error;
    std::size_t parts;
  } cases[] = {{"shrinks", [](const File& file) { resize_file(file, kChunk + 7); }, {}, 2},
               {"grows", [](const File& file) { resize_file(file, 5 * kChunk); }, {}, 3},
               {"empties", [](const File& file) { resize_file(file, 0); }, {}, 0},
               {"vanishes", [](const File& file) { remove(file); }, S3Error::fileReadError(), 0},
               {"becomes a folder", [](const File& file) { remove(file), create_directory(file); },
                S3Error::fileReadError(), 0}};
  for (const auto& [what, change, error, parts] : cases) {
    const auto file = fileOfSize(3 * kChunk);
    FaultServer server([&](const RecordedRequest& request) {
      if (request.target().ends_with("?uploads")) change(file);
      return wellBehaved(request);
    });
    const auto outcome = upload(configFor(server.url()), file);
    EXPECT_EQ(outcome.error, error) << what;
    EXPECT_EQ(outcome.progress.size(), parts) << what;
    EXPECT_EQ(requestLines(server).back(), error ? kAbort : kComplete);
  }
}

/// An upload whose uploader goes while request `number` awaits its answer.
std::future<Outcome> uploadOutlivingItsUploader(FaultServer& server, std::size_t number) {
  const testing::Gate gate;
  for (std::size_t i = 1; i < number; ++i) server.queue(answer(200, "<UploadId>id</UploadId>"));
  server.queue(
      {.answer = answerText(200, "<UploadId>id</UploadId>", {{"ETag", "t"}}), .gate = gate});
  auto uploader = std::make_optional<S3MultipartUploader>(configFor(server.url()));
  auto outcome = start(*uploader, fileOfSize(kChunk + 1));
  server.waitForRequests(number);
  uploader.reset();
  gate.open();
  return outcome;
}

TEST(S3MultipartUploader, AnUploaderThatGoesDuringInitiateEndsSilently) {
  FaultServer server(wellBehaved);
  // The answer lets go of the callbacks unused, which the future tells as a broken promise.
  EXPECT_THROW(uploadOutlivingItsUploader(server, 1).get(), std::future_error);
  EXPECT_EQ(requestLines(server), Lines{kInitiate});
}

TEST(S3MultipartUploader, AnUploaderThatGoesLaterIsKeptAlive) {
  FaultServer server(wellBehaved);
  EXPECT_FALSE(uploadOutlivingItsUploader(server, 2).get().error);
  EXPECT_EQ(requestLines(server), (Lines{kInitiate, kPart1, kPart2, kComplete}));
}

const testing::ChildMain kSideBySide("sideBySide", [](const auto& arguments) {
  const auto file = fileOfSize(std::stoll(arguments.at(1)));
  // An allocator keeps blocks of a size that it has seen come back.
  if (upload(configFor(arguments.at(2)), file).error) return 1;
  S3MultipartUploader uploader(configFor(arguments.at(0)));
  const testing::MemoryGrowth growth;
  std::vector<std::future<Outcome>> outcomes;
  for (int i = 0; i < kSideBySideUploads; ++i) outcomes.push_back(start(uploader, file));
  for (auto& outcome : outcomes) {
    const auto ended = outcome.get();
    const auto size = static_cast<std::int64_t>(file_size(file));
    if (ended.error || ended.progress != Progress{{size, size}}) return 1;
  }
  std::cout << growth.kibibytesLeft();
  return 0;
});

TEST(S3MultipartUploader, ManyUploadsShareOneUploaderAndTheirMemoryGoesBack) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP();
  const FaultServer prompt(wellBehaved);
  for (const auto size : {kChunk, kChunk - 1}) {
    const testing::Gate gate;  // Opens once every upload holds its part.
    FaultServer server([&](const RecordedRequest& request) {
      auto reaction = wellBehaved(request);
      if (request.method() != "PUT") return reaction;
      reaction.gate = gate;
      reaction.readAtMost = 0;
      return reaction;
    });
    auto uploads = testing::ChildProcess::run("sideBySide",
                                              {server.url(), std::to_string(size), prompt.url()});
    server.waitForRequests(size < kChunk ? kSideBySideUploads : 2 * kSideBySideUploads);
    gate.open();
    EXPECT_LT(std::stol(uploads.readAll()), 32 * 1024) << size;
  }
}

const testing::ChildMain kWithoutMemory("withoutMemory", [](const auto& arguments) {
  S3MultipartUploader uploader(configFor(arguments.at(0)));
  const auto file = fileOfSize(kChunk);
  if (start(uploader, file).get().error) return 1;
  const auto room = static_cast<rlim_t>(testing::memoryFigure("VmData") * 1024 + kChunk / 2);
  const rlimit limit{.rlim_cur = room, .rlim_max = room};
  setrlimit(RLIMIT_DATA, &limit);
  std::cout << start(uploader, file).get().error->description();
  return 0;
});

TEST(S3MultipartUploader, WithoutMemoryForAPartItIsAborted) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP();
  FaultServer server(wellBehaved);
  EXPECT_EQ(testing::outputOfChild("withoutMemory", {server.url()}), "Unable to read file");
  EXPECT_EQ(requestLines(server), (Lines{kInitiate, kPart1, kComplete, kInitiate, kAbort}));
}

}  // namespace
}  // namespace orvane
