#include <orvane/platform/files/FileVersion.h>
#include <orvane/transport/ResumableUploader.h>
#include <orvane/transport/S3MultipartUploader.h>

#include "support/Dialogue.h"
#include "support/MemoryGrowth.h"
#include "support/Test.h"

namespace orvane {
namespace {

using testing::Dialogue;
using testing::lineOf;
using testing::linesOf;
using Lines = std::vector<std::string>;

constexpr std::int64_t kPart = S3MultipartUploader::chunkSize;
constexpr std::int64_t kFileSize = 2 * kPart + 1'000'000;
constexpr std::size_t kSideBySideUploads = 20;
const std::string kInitiate = "POST?uploads";
const Lines kParts = {"PUT?partNumber=1&uploadId=new", "PUT?partNumber=2&uploadId=new"};
const std::string kComplete = "POST?uploadId=new";
const std::string kAbort = "DELETE?uploadId=new";

fs::path fileOfZeros(std::int64_t size) {
  const auto file = testDirectory() / "file";
  fs::remove_all(file);
  writeFile(file, "");
  fs::resize_file(file, static_cast<std::uintmax_t>(size));
  return file;
}

/// What a store does that knows of no object and no upload but the one begun.
Reaction wellBehaved(const std::string& line) {
  if (line == kInitiate) return answer(200, "<UploadId>new</UploadId>");
  if (line.starts_with("POST")) return answer(200, "<ETag>&quot;whole-3&quot;</ETag>");
  if (line.starts_with("PUT?")) return answer(200, "", {{"ETag", "\"" + line + "\""}});
  if (line.starts_with("PUT")) return answer(200, "", {{"ETag", "\"small\""}});
  return answer(line.starts_with("DELETE") ? 204 : 404);
}

Reaction wellBehavedStore(const RecordedRequest& request) { return wellBehaved(lineOf(request)); }

Reaction storeThatIsTold(const RecordedRequest& request, const std::string& told) {
  return told.empty() ? wellBehavedStore(request) : testing::reactionTo(told);
}

fs::path fileOf(const Dialogue& dialogue) {
  const auto size = dialogue.given.find("file");
  return fileOfZeros(size == dialogue.given.end() ? kFileSize : std::stoll(size->second));
}

struct Outcome {
  std::string text = "done";  ///< Or the ETag, or the error without its details.
  std::vector<std::int64_t> accepted;
  std::thread::id completedOn;

  [[nodiscard]] std::string withProgress() const {
    return text + ", " + std::to_string(accepted.empty() ? 0 : accepted.back()) + " accepted";
  }
};

/// Starts an upload; the future is ready once completion has been called. A second completion
/// throws, which ends the test's process.
std::future<Outcome> start(S3MultipartUploader& uploader, const fs::path& file) {
  const auto outcome = std::make_shared<Outcome>();
  const auto promise = std::make_shared<std::promise<Outcome>>();
  uploader.upload(
      file, "k", "image/jpeg",
      [outcome](std::int64_t sent, std::int64_t /*total*/) { outcome->accepted.push_back(sent); },
      [outcome, promise](const Result<void>& result) {
        if (!result) outcome->text = result.error().description();
        outcome->text = outcome->text.substr(0, outcome->text.find(" ("));
        outcome->completedOn = std::this_thread::get_id();
        promise->set_value(*outcome);
      });
  return promise->get_future();
}

Outcome upload(const S3Config& config, const fs::path& file) {
  S3MultipartUploader uploader(config);
  return start(uploader, file).get();
}

TEST(S3MultipartUploader, SendsInPartsWhatIsLargeAndEndsWithTheFirstFailedStep) {
  testing::expectDialogues("dialogues/in-parts.txt", storeThatIsTold,
                           [](const Dialogue& dialogue, const std::string& url) {
                             return upload(configFor(url), fileOf(dialogue)).withProgress();
                           });
}

TEST(S3MultipartUploader, EarlyFailuresComeAtOnceAndSendNothing) {
  const FaultServer server;
  const auto missing = testDirectory() / "missing";
  const std::tuple<std::string, fs::path, std::string> cases[] = {
      {server.url(), missing, "Unable to read file"},
      {server.url(), testDirectory(), "Unable to read file"},
      {"http://bad host", missing, "Invalid S3 URL"}};
  for (const auto& [endpoint, file, error] : cases) {
    const auto outcome = upload(configFor(endpoint), file);
    EXPECT_EQ(outcome.text, error);
    EXPECT_EQ(outcome.completedOn, std::this_thread::get_id());
  }
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(S3MultipartUploader, AFileThatChangesMeanwhileHasTheStatedOutcome) {
  const struct {
    const char* what;
    void (*change)(const fs::path&);  ///< After the first request.
    std::string outcome;
    std::size_t parts;
  } cases[] = {{"shrinks", [](const fs::path& file) { resize_file(file, kPart + 7); }, "done", 2},
               {"grows", [](const fs::path& file) { resize_file(file, 5 * kPart); }, "done", 3},
               {"vanishes", [](const fs::path& file) { remove(file); }, "Unable to read file", 0}};
  for (const auto& [what, change, outcome, parts] : cases) {
    const auto file = fileOfZeros(3 * kPart);
    FaultServer server([&](const RecordedRequest& request) {
      if (lineOf(request) == kInitiate) change(file);
      return wellBehavedStore(request);
    });
    const auto seen = upload(configFor(server.url()), file);
    EXPECT_EQ(seen.text, outcome) << what;
    EXPECT_EQ(seen.accepted.size(), parts) << what;
    EXPECT_EQ(linesOf(server).back(), outcome == "done" ? kComplete : kAbort) << what;
  }
}

TEST(S3MultipartUploader, AnUploaderThatGoesDuringInitiateEndsSilentlyAndLaterIsKeptAlive) {
  for (const std::size_t number : {1U, 2U}) {
    const testing::Gate gate;  // Opens once the uploader has gone, while this request waits.
    FaultServer server([&](const RecordedRequest& request) {
      auto reaction = wellBehavedStore(request);
      reaction.gate = gate;
      return reaction;
    });
    if (number == 2) server.queue(wellBehaved(kInitiate));
    auto uploader = std::make_optional<S3MultipartUploader>(configFor(server.url()));
    auto outcome = start(*uploader, fileOfZeros(kPart + 1));
    server.waitForRequests(number);
    uploader.reset();
    gate.open();
    if (number == 1) {
      // The response lets go of the callbacks unused, which the future tells as a broken promise.
      EXPECT_THROW(outcome.get(), std::future_error);
      EXPECT_EQ(linesOf(server), Lines{kInitiate});
    } else {
      EXPECT_EQ(outcome.get().text, "done");
    }
  }
}

const ChildMain kSideBySide("sideBySide", [](const auto& arguments) {
  const auto file = fileOfZeros(3 * kPart);
  S3MultipartUploader uploader(configFor(arguments.at(0)));
  const testing::MemoryGrowth growth;
  std::vector<std::future<Outcome>> outcomes;
  outcomes.reserve(kSideBySideUploads);
  while (outcomes.size() < kSideBySideUploads) outcomes.push_back(start(uploader, file));
  for (auto& outcome : outcomes) {
    if (outcome.get().text != "done") return 1;
  }
  std::cout << growth.kibibytes() / static_cast<long>(kSideBySideUploads);
  return 0;
});

TEST(S3MultipartUploader, HoldsOnePartOfEachUpload) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP();
  const testing::Gate gate;  // Opens once every upload holds its part.
  FaultServer server([&](const RecordedRequest& request) {
    auto reaction = wellBehavedStore(request);
    if (request.method() != "PUT") return reaction;
    reaction.gate = gate;
    reaction.readAtMost = 0;
    return reaction;
  });
  auto uploads = ChildProcess::run("sideBySide", {server.url()});
  server.waitForRequests(2 * kSideBySideUploads);
  gate.open();
  EXPECT_LT(std::stol(uploads.readAll()), 12 * 1024);
}

UploadCheckpoint checkpointOf(const fs::path& file, const std::string& numbersAndETags) {
  const auto version = platform::versionOf(file).value();
  UploadCheckpoint checkpoint{
      .uploadId = "old", .fileSize = version.size, .modified = version.modified, .parts = {}};
  std::istringstream words(numbersAndETags);
  std::string eTag;
  for (std::int64_t part = 0; words >> part >> eTag;) checkpoint.parts.emplace(part, eTag);
  return checkpoint;
}

std::string resumedUpload(ResumableUploader& uploader, const fs::path& file,
                          std::optional<UploadCheckpoint> from = {},
                          ResumableUploader::Events events = {}) {
  const auto eTag =
      testing::run(uploader.upload(file, "k", "image/jpeg", std::move(from), std::move(events)));
  return eTag ? *eTag : eTag.error().description();
}

TEST(ResumableUploader, TriesAgainWhatMayPassAbortsWhatMayNotAndGoesOnWhereItWasLeft) {
  testing::expectDialogues(
      "dialogues/resumable.txt", storeThatIsTold,
      [](const Dialogue& dialogue, const std::string& url) {
        ResumableUploader uploader(configFor(url), {.partsInFlight = 1, .firstRetryDelay = 1ms});
        const auto file = fileOf(dialogue);
        std::optional<UploadCheckpoint> from;
        if (dialogue.given.contains("from")) from = checkpointOf(file, dialogue.given.at("from"));
        Outcome outcome;
        outcome.text = resumedUpload(uploader, file, from, {.progress = [&](auto accepted, auto) {
                                       outcome.accepted.push_back(accepted);
                                     }});
        return outcome.withProgress();
      });
}

TEST(ResumableUploader, PartsAreLargerWhereTenThousandWouldNotDo) {
  EXPECT_EQ(ResumableUploader::partSizeFor(10'000 * kPart), kPart);
  EXPECT_EQ(ResumableUploader::partSizeFor(10'000 * kPart + 1), kPart + (1 << 20));
}

TEST(ResumableUploader, MakesNoObjectOfAFileThatChanges) {
  const auto file = fileOfZeros(kFileSize);
  std::atomic<bool> changed = false;
  const FaultServer server([&](const RecordedRequest& request) {
    if (lineOf(request) == kParts[1] && !changed.exchange(true))
      writeFile(file, std::string(kFileSize, 'x'));
    return wellBehavedStore(request);
  });
  ResumableUploader uploader(configFor(server.url()), {.partsInFlight = 1});
  EXPECT_EQ(resumedUpload(uploader, file), "The file changed while it was being uploaded");
  EXPECT_EQ(linesOf(server).back(), kAbort);
  const auto other = checkpointOf(file, "1 a");
  EXPECT_EQ(resumedUpload(uploader, fileOfZeros(kFileSize + 1), other), "whole-3");
  EXPECT_EQ(linesOf(server).at(5), "DELETE?uploadId=old");
  EXPECT_EQ(resumedUpload(uploader, "/nowhere", other), "Unable to read file");
  EXPECT_EQ(linesOf(server).back(), "DELETE?uploadId=old");
}

TEST(ResumableUploader, LeavesWhatIsAcceptedToAnotherWhenItIsCancelled) {
  FaultServer server(wellBehavedStore);
  ResumableUploader uploader(configFor(server.url()), {.partsInFlight = 2});
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
  EXPECT_FALSE(reached.parts.empty());
  for (const auto& line : linesOf(server)) EXPECT_TRUE(line != kAbort && line != kComplete) << line;
}

TEST(ResumableUploader, SignsWithTheStoresTimeWhereTheClocksDiffer) {
  FaultServer server(wellBehavedStore);
  server.queue(answer(403, "", {{"Date", "Wed, 01 Jan 2031 10:00:00 GMT"}}));
  ResumableUploader uploader(configFor(server.url()));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(resumedUpload(uploader, fileOfZeros(1)), "small");
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_THAT(requests[1].header("x-amz-date").value(), StartsWith("20310101T10"));
  EXPECT_THAT(requests[2].header("x-amz-date").value(), StartsWith("20310101T10"));
}

}  // namespace
}  // namespace orvane
