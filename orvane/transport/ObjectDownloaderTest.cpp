#include <orvane/transport/ObjectDownloader.h>

#include <orvane/platform/base/Digest.h>
#include <orvane/platform/base/Md5.h>

#include "support/Dialogue.h"
#include "support/Test.h"

namespace orvane {
namespace {

using testing::Dialogue;

constexpr std::size_t kRange = std::size_t{8} << 20;
constexpr std::size_t kSize = 2 * kRange + 1'000'000;

std::string contentOf(std::size_t size) {
  static const std::string random = [] {
    std::string content(kSize, '\0');
    std::ranges::generate(content, std::minstd_rand(1));
    return content;
  }();
  return random.substr(0, size);
}

std::string md5Of(std::string_view content) {
  return platform::hexString(platform::md5(bytesOf(content)));
}

std::vector<std::size_t> sizesIn(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::size_t>(words), {}};
}

/// The ETag of content that was stored in parts of these sizes.
std::string eTagOf(std::string_view content, const std::vector<std::size_t>& partSizes) {
  Bytes sums;
  for (std::size_t first = 0; const auto size : partSizes) {
    const auto sum = platform::md5(bytesOf(content.substr(first, size)));
    sums.insert(sums.end(), sum.begin(), sum.end());
    first += size;
  }
  return platform::hexString(platform::md5(sums)) + "-" + std::to_string(partSizes.size());
}

/// A store with one object.
struct Store {
  std::string content = contentOf(kSize);
  std::string eTag = md5Of(content);
  std::vector<std::size_t> parts = {};  ///< Sizes that the store tells.
  testing::HeaderList headers = {};

  static Store of(const std::map<std::string, std::string>& given) {
    Store store;
    if (given.contains("content")) store.content = given.at("content");
    if (given.contains("size")) store.content = contentOf(sizesIn(given.at("size")).front());
    store.eTag = md5Of(store.content);
    for (const auto& [name, value] : given) {
      if (name == "etag") store.eTag = value;
      if (name == "told") store.parts = sizesIn(value);
      if (name == "header") {
        store.headers = {{value.substr(0, value.find(':')), value.substr(value.find(": ") + 2)}};
      }
    }
    if (store.eTag.starts_with("parts ")) {
      store.eTag = eTagOf(store.content, sizesIn(store.eTag.substr(6)));
    }
    return store;
  }

  [[nodiscard]] Reaction head(std::size_t size) const {
    auto head = answer(200, "", headers).answer;
    const auto fields = "ETag: \"" + eTag + "\"\r\nContent-Length: " + std::to_string(size);
    return {.answer = head.replace(head.find("Content-Length"), 17, fields)};
  }

  /// The bytes of a text such as "0-8388607", as those of the version with that ETag.
  [[nodiscard]] Reaction get(const std::string& range, const std::string& version) const {
    const auto first = std::stoul(range);
    if (first >= content.size()) return answer(416);
    const auto end = std::min(std::stoul(range.substr(range.find('-') + 1)) + 1, content.size());
    auto fields = headers;
    fields.emplace_back("ETag", "\"" + version + "\"");
    fields.emplace_back("Content-Range", "bytes " + std::to_string(first) + "-" +
                                             std::to_string(end - 1) + "/" +
                                             std::to_string(content.size()));
    return answer(206, content.substr(first, end - first), fields);
  }

  [[nodiscard]] Reaction reactTo(const RecordedRequest& request) const {
    const auto number = request.target().find("partNumber=");
    if (number != std::string::npos) {
      const auto index = std::stoul(request.target().substr(number + 11)) - 1;
      return index < parts.size() ? head(parts[index]) : answer(400);
    }
    if (request.method() == "HEAD") return head(content.size());
    const auto range = request.header("Range").value().substr(6);
    if (!range.starts_with("0-") && !request.header("If-Match")) return answer(428);
    if (request.header("If-Match").value_or("\"" + eTag + "\"") != "\"" + eTag + "\"") {
      return answer(412);
    }
    return get(range, eTag);
  }

  [[nodiscard]] Reaction reactTo(const RecordedRequest& request, const std::string& told) const {
    if (told.empty()) return reactTo(request);
    if (told == "half") {
      auto half = reactTo(request);
      half.sendAtMost = half.answer.size() / 2;
      half.end = Reaction::End::close;
      return half;
    }
    std::istringstream words(told);
    std::string word;
    std::string range;
    std::string version = eTag;
    words >> word >> range >> version;
    return word == "bytes" ? get(range, version.empty() ? eTag : version)
                           : testing::reactionTo(told);
  }
};

fs::path target() { return testDirectory() / "folder" / "target"; }

/// What is in the target's folder beside the target.
std::vector<fs::path> leftovers() {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(target().parent_path())) {
    if (entry.path() != target()) files.push_back(entry.path());
  }
  return files;
}

Result<DownloadedObject> download(const std::string& url,
                                  ExistingFile existing = ExistingFile::keep,
                                  ObjectDownloader::Events events = {}) {
  fs::create_directory(target().parent_path());
  ObjectDownloader downloader(configFor(url), {.rangesInFlight = 1, .firstRetryDelay = 1ms});
  return testing::run(downloader.download("k", target(), existing, std::move(events)));
}

std::string outcomeOf(const Result<DownloadedObject>& object) {
  if (!object) return object.error().description();
  if (object->wasThere) return "was there";
  return object->isChecked ? "checked" : "not checkable";
}

/// Leaves a download with all of its ranges on the disk but the last.
fs::path interruptedDownload(const Store& store) {
  FaultServer server([&](const RecordedRequest& request) {
    const auto last = std::to_string((store.content.size() - 1) / kRange * kRange);
    return testing::lineOf(request).starts_with("GET " + last) ? answer(503)
                                                               : store.reactTo(request);
  });
  EXPECT_FALSE(download(server.url(), ExistingFile::keep,
                        {.mayRetry = [](const auto&, auto) { return false; }}));
  return leftovers().at(0);
}

TEST(ObjectDownloader, BringsTheObjectWholeOrNothing) {
  Store store;
  testing::expectDialogues(
      "dialogues/downloads.txt",
      [&](const RecordedRequest& request, const std::string& told) {
        return store.reactTo(request, told);
      },
      [&](const Dialogue& dialogue, const std::string& url) {
        store = Store::of(dialogue.given);
        fs::remove_all(target().parent_path());
        if (dialogue.given.contains("unfinished")) {
          const auto unfinished = interruptedDownload(store);
          if (dialogue.given.contains("replaced")) store = Store{contentOf(kSize - 1) + "!"};
          if (dialogue.given.contains("whole")) writeFile(unfinished, store.content);
          if (dialogue.given.contains("target")) writeFile(target(), store.content);
        }
        const auto object = download(url);
        EXPECT_EQ(leftovers().empty(), !dialogue.given.contains("left"));
        EXPECT_EQ(fs::exists(target()), object.has_value());
        EXPECT_TRUE(!object || readFile(target()) == store.content);
        return outcomeOf(object);
      });
}

TEST(ObjectDownloader, TreatsAFileAtTheTargetAsTold) {
  Store store{"content"};
  store.headers = {{"x-amz-meta-mtime", "1234567890.123456789"}};
  FaultServer server([&](const RecordedRequest& request) { return store.reactTo(request); });
  const auto modified = [] { return fs::last_write_time(target()); };
  EXPECT_EQ(outcomeOf(download(server.url())), "checked");
  const auto original = modified();
  EXPECT_EQ(std::chrono::file_clock::to_sys(original).time_since_epoch(), 1234567890123456789ns);
  EXPECT_EQ(outcomeOf(download(server.url())), "was there");
  EXPECT_EQ(testing::linesOf(server).back(), "HEAD");
  store.eTag = "version-7";  // The time is enough.
  EXPECT_EQ(outcomeOf(download(server.url())), "was there");
  store.eTag = md5Of(store.content);
  fs::last_write_time(target(), original + 1s);
  EXPECT_EQ(outcomeOf(download(server.url())), "was there");
  EXPECT_EQ(modified(), original + 1s);

  for (const std::string there : {"contend", "longer than it", "content"}) {
    writeFile(target(), there);
    if (there == store.content) store.eTag = "version-7";
    const auto refused = download(server.url());
    ASSERT_FALSE(refused) << there;
    EXPECT_EQ(refused.error().code(), EEXIST);
    EXPECT_EQ(readFile(target()), there);
    EXPECT_TRUE(download(server.url(), ExistingFile::replace));
    EXPECT_EQ(readFile(target()), "content");
  }
  const auto elsewhere = testDirectory() / "elsewhere";
  writeFile(elsewhere, "untouched");
  fs::remove(target());
  fs::create_symlink(elsewhere, target());
  EXPECT_TRUE(download(server.url(), ExistingFile::replace));
  EXPECT_FALSE(fs::is_symlink(target()));
  EXPECT_EQ(readFile(elsewhere), "untouched");
}

TEST(ObjectDownloader, IsRefusedWhatIsInTheWayOfTheUnfinishedFile) {
  const Store store{contentOf(kRange + 1)};
  FaultServer server([&](const RecordedRequest& request) { return store.reactTo(request); });
  const auto unfinished = interruptedDownload(store);
  std::optional<std::int64_t> second;
  const auto first = download(server.url(), ExistingFile::keep, {.progress = [&](auto, auto) {
                                if (!second) second = download("http://127.0.0.1:1").error().code();
                              }});
  EXPECT_EQ(outcomeOf(first), "checked");
  EXPECT_EQ(second, EWOULDBLOCK);

  fs::remove(target());
  const auto late =
      download(server.url(), ExistingFile::keep,
               {.progress = [](auto, auto) { writeFile(target(), "somebody else's"); }});
  EXPECT_EQ(late.error().code(), EEXIST);
  EXPECT_EQ(readFile(target()), "somebody else's");
  fs::remove(target());
  const auto elsewhere = testDirectory() / "elsewhere";
  writeFile(elsewhere, "untouched");
  fs::create_symlink(elsewhere, unfinished);
  EXPECT_FALSE(download(server.url()));
  fs::remove(unfinished);
  fs::create_hard_link(elsewhere, unfinished);
  EXPECT_FALSE(download(server.url()));
  EXPECT_EQ(readFile(elsewhere), "untouched");
  EXPECT_FALSE(fs::exists(target()));
}

TEST(ObjectDownloader, LeavesNothingWhenThereIsNoRoom) {
  FaultServer server([](const RecordedRequest& request) { return Store().reactTo(request); });
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{.rlim_cur = kRange, .rlim_max = kRange};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const auto object = download(server.url());
  ASSERT_FALSE(object);
  EXPECT_EQ(object.error().code(), EFBIG);
  EXPECT_EQ(testing::linesOf(server).size(), 1U);
  EXPECT_TRUE(leftovers().empty());
}

}  // namespace
}  // namespace orvane
