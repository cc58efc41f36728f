#include <orvane/transport/ObjectDownloader.h>

#include <orvane/platform/base/Digest.h>
#include <orvane/platform/base/Md5.h>

#include "support/FaultServer.h"
#include "support/Run.h"
#include "support/StoreConfig.h"
#include "support/Test.h"

#include <sys/resource.h>

#include <csignal>

namespace orvane {
namespace {

using testing::answer;
using testing::FaultServer;
using testing::Reaction;
using testing::RecordedRequest;
using Lines = std::vector<std::string>;

constexpr std::size_t kRange = std::size_t{8} << 20;

std::string contentOf(std::size_t size) {
  std::minstd_rand random(static_cast<unsigned>(size));
  std::string content(size, '\0');
  for (auto& c : content) c = static_cast<char>(random());
  return content;
}

std::string md5Of(std::string_view content) {
  return platform::hexString(platform::md5(bytesOf(content)));
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
  std::string content;
  std::string eTag = md5Of(content);
  std::vector<std::size_t> parts = {};  ///< Sizes that the store tells.
  testing::HeaderList headers = {};

  [[nodiscard]] Reaction head(std::size_t size) const {
    std::string text = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) +
                       "\r\nETag: \"" + eTag + "\"\r\n";
    for (const auto& [name, value] : headers) {
      text.append(name).append(": ").append(value).append("\r\n");
    }
    return {.answer = text + "\r\n"};
  }

  [[nodiscard]] Reaction get(std::size_t first, std::size_t last) const {
    if (first >= content.size()) return answer(416);
    const auto end = std::min(last + 1, content.size());
    auto fields = headers;
    fields.emplace_back("ETag", "\"" + eTag + "\"");
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
    if (request.header("If-Match").value_or("\"" + eTag + "\"") != "\"" + eTag + "\"") {
      return answer(412);
    }
    const auto range = request.header("Range").value().substr(6);
    return get(std::stoul(range), std::stoul(range.substr(range.find('-') + 1)));
  }
};

std::string lineOf(const RecordedRequest& request) {
  const auto query = request.target().find('?');
  if (query != std::string::npos) return request.method() + request.target().substr(query);
  const auto range = request.header("Range").value_or("bytes=");
  return request.method() + range.substr(6, range.find('-') - 6);
}

fs::path target() { return testDirectory() / "folder" / "target"; }

/// What is in the target's folder beside the target.
Lines leftovers() {
  Lines names;
  for (const auto& entry : fs::directory_iterator(target().parent_path())) {
    if (entry.path() != target()) names.push_back(entry.path().filename());
  }
  return names;
}

std::string outcomeOf(const Result<DownloadedObject>& object) {
  if (!object) return object.error().description();
  if (object->wasThere) return "was there";
  return object->isChecked ? "checked" : "not checkable";
}

class Downloads : public ::testing::Test {
 protected:
  Downloads() { fs::create_directory(target().parent_path()); }

  /// Downloads with these faults, each instead of the first request with its line.
  Result<DownloadedObject> download(const Store& store,
                                    std::vector<std::pair<std::string, Reaction>> faults = {},
                                    ExistingFile existing = ExistingFile::keep,
                                    ObjectDownloader::Events events = {}) {
    std::mutex mutex;
    FaultServer server([&](const RecordedRequest& request) {
      const std::lock_guard lock(mutex);
      const auto fault =
          std::ranges::find(faults, lineOf(request), &decltype(faults)::value_type::first);
      if (fault == faults.end()) return store.reactTo(request);
      auto reaction = std::move(fault->second);
      faults.erase(fault);
      return reaction;
    });
    ObjectDownloader downloader(testing::configFor(server.url()),
                                {.rangesInFlight = 1, .firstRetryDelay = 1ms});
    auto object = testing::run(downloader.download("k", target(), existing, std::move(events)));
    requests_.clear();
    for (const auto& request : server.requests()) requests_.push_back(lineOf(request));
    const std::lock_guard lock(mutex);
    EXPECT_TRUE(faults.empty());
    return object;
  }

  Lines requests_;
};

const std::string kFirst = "GET0";
const std::string kSecond = "GET" + std::to_string(kRange);
const std::string kThird = "GET" + std::to_string(2 * kRange);
const std::string kChanged = "The object changed while it was being downloaded";
const std::string kOther = "The response does not hold the range that was asked for";

TEST_F(Downloads, BringTheObjectWholeOrNothing) {
  const auto content = contentOf(2 * kRange + 1'000'000);
  const std::vector<std::size_t> odd = {kRange + 5, kRange - 5, 1'000'000};
  const Store store{content};
  const Store changed{content, "other"};
  auto lost = store.get(kRange, 2 * kRange - 1);
  lost.sendAtMost = 100'000;
  lost.end = Reaction::End::close;
  auto shifted = store.get(kRange + 1, 2 * kRange);
  auto cut = store.get(kRange, 2 * kRange - 2);
  const Lines all = {kFirst, kSecond, kThird};
  const Lines again = {kFirst, kSecond, kSecond, kThird};
  struct Case {
    std::string what;
    Store store;
    std::vector<std::pair<std::string, Reaction>> faults;
    Lines requests;
    std::string outcome = "checked";
  };
  const Store encrypted{content,
                        "0123456789abcdef0123456789abcdef",
                        {},
                        {{"x-amz-server-side-encryption", "aws:kms"}}};
  const std::vector<Case> cases = {
      {"all is well", store, {}, all},
      {"small", {contentOf(1000)}, {}, {kFirst}},
      {"one range", {contentOf(kRange)}, {}, {kFirst}},
      {"empty", {""}, {}, {kFirst, "HEAD"}},
      {"a store without ranges",
       {"abc"},
       {{kFirst, answer(200, "abc", {{"ETag", md5Of("abc")}})}},
       {kFirst}},
      {"busy", store, {{kSecond, answer(503)}}, again},
      {"broken off", store, {{kSecond, lost}}, again},
      {"not there", store, {{kFirst, answer(404)}}, {kFirst}, "HTTP error 404"},
      {"no ETag", store, {{kFirst, answer(200, "abc")}}, {kFirst}, "Missing ETag"},
      {"another range", store, {{kSecond, shifted}}, {kFirst, kSecond}, kOther},
      {"less than the range", store, {{kSecond, cut}}, {kFirst, kSecond}, kOther},
      {"the whole object for a range",
       store,
       {{kSecond, answer(200, "abc", {{"ETag", "x"}})}},
       {kFirst, kSecond},
       kOther},
      {"too much",
       {"abc"},
       {{kFirst, answer(200, std::string(kRange + 1, 'x'))}},
       {kFirst},
       "The server's answer is longer than allowed"},
      {"endless",
       store,
       {{kSecond,
         {.answer = "HTTP/1.1 206 OK\r\nETag: x\r\n\r\n" + std::string(kRange, 'x'),
          .end = Reaction::End::repeat}}},
       {kFirst, kSecond},
       "The server's answer is longer than allowed"},
      {"changed", store, {{kSecond, answer(412)}}, {kFirst, kSecond, kFirst, kSecond, kThird}},
      {"shorter by now",
       store,
       {{kThird, answer(416)}},
       {kFirst, kSecond, kThird, kFirst, kSecond, kThird}},
      {"changed in silence",
       store,
       {{kThird, changed.get(2 * kRange, 3 * kRange)}},
       {kFirst, kSecond, kThird, kFirst, kSecond, kThird}},
      {"ever changing",
       store,
       {{kSecond, answer(412)},
        {kSecond, answer(412)},
        {kSecond, answer(412)},
        {kSecond, answer(412)}},
       {kFirst, kSecond, kFirst, kSecond, kFirst, kSecond, kFirst, kSecond},
       kChanged},
      {"other content",
       {content, md5Of("other")},
       {},
       all,
       "The content of the object does not match its ETag"},
      {"an ETag that says nothing", {content, "version-7"}, {}, all, "not checkable"},
      {"encrypted", encrypted, {}, all, "not checkable"},
      {"parts of the usual size", {content, eTagOf(content, {kRange, kRange, 1'000'000})}, {}, all},
      {"parts of sizes that are told",
       {content, eTagOf(content, odd), odd},
       {},
       {kFirst, kSecond, kThird, "HEAD?partNumber=1", "HEAD?partNumber=2", "HEAD?partNumber=3"}},
      {"parts of unknown sizes",
       {content, eTagOf(content, odd)},
       {},
       {kFirst, kSecond, kThird, "HEAD?partNumber=1"},
       "not checkable"},
      {"sizes of parts that cannot be",
       {content, eTagOf(content, odd), {std::size_t{1} << 62, 1, 1}},
       {},
       {kFirst, kSecond, kThird, "HEAD?partNumber=1"},
       "not checkable"},
      {"other parts",
       {content, eTagOf("other", {5, 0, 0}), odd},
       {},
       {kFirst, kSecond, kThird, "HEAD?partNumber=1", "HEAD?partNumber=2", "HEAD?partNumber=3"},
       "The content of the object does not match its ETag"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    EXPECT_EQ(outcomeOf(download(test.store, test.faults)), test.outcome);
    EXPECT_EQ(requests_, test.requests);
    EXPECT_EQ(leftovers(), Lines());
    const bool isThere = test.outcome == "checked" || test.outcome == "not checkable";
    EXPECT_EQ(fs::exists(target()), isThere);
    EXPECT_TRUE(!isThere || testing::readFile(target()) == test.store.content);
    fs::remove(target());
  }
}

TEST_F(Downloads, GoOnWithTheSameVersionOnly) {
  const auto content = contentOf(2 * kRange + 1'000'000);
  const Store store{content};
  const Store replaced{contentOf(2 * kRange + 1'000'000) + "!"};
  const auto interrupt = [&] {
    const auto object = download(store, {{kThird, answer(503)}}, ExistingFile::keep,
                                 {.mayRetry = [](auto&&...) { return false; }});
    ASSERT_EQ(outcomeOf(object), "HTTP error 503");
    ASSERT_EQ(leftovers().size(), 1U);
    ASSERT_FALSE(fs::exists(target()));
  };
  interrupt();
  EXPECT_EQ(outcomeOf(download(store, {{"HEAD", answer(503)}}, ExistingFile::keep,
                               {.mayRetry = [](auto&&...) { return false; }})),
            "HTTP error 503");
  EXPECT_EQ(outcomeOf(download(store)), "checked");
  EXPECT_EQ(requests_, (Lines{"HEAD", kThird}));
  EXPECT_TRUE(testing::readFile(target()) == content);
  fs::remove(target());

  interrupt();
  EXPECT_EQ(outcomeOf(download(replaced)), "checked");
  EXPECT_EQ(requests_, (Lines{"HEAD", kFirst, kSecond, kThird}));
  EXPECT_TRUE(testing::readFile(target()) == replaced.content);
  fs::remove(target());

  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::pair<std::string, std::string> heads[] = {
      {ok + "ETag: x\r\n\r\n", "Missing Content-Length"},
      {ok + "Content-Length: 5\r\n\r\n", "Missing ETag"},
      {ok + "ETag: x\r\nContent-Length: 99999999999999999\r\n\r\n",
       "The object is larger than objects can be"}};
  for (const auto& [head, outcome] : heads) {
    SCOPED_TRACE(outcome);
    interrupt();
    EXPECT_EQ(outcomeOf(download(store, {{"HEAD", Reaction{.answer = head}}})), outcome);
    EXPECT_EQ(leftovers(), Lines());
  }
  interrupt();  // The head lies about the size: ranges have no such version.
  EXPECT_EQ(outcomeOf(download(store, {{"HEAD", store.head(2 * kRange)}})), "checked");
  EXPECT_TRUE(testing::readFile(target()) == content);
  fs::remove(target());

  interrupt();  // The file came from elsewhere meanwhile.
  testing::writeFile(target(), content);
  EXPECT_EQ(outcomeOf(download(store)), "was there");
  EXPECT_EQ(leftovers(), Lines());
  fs::remove(target());

  interrupt();  // The process ended when only the name was missing.
  testing::writeFile(target().parent_path() / leftovers().front(), content);
  EXPECT_EQ(outcomeOf(download(store)), "checked");
  EXPECT_EQ(requests_, Lines{"HEAD"});
  EXPECT_TRUE(testing::readFile(target()) == content);
  EXPECT_EQ(leftovers(), Lines());
}

TEST_F(Downloads, TreatAFileAtTheTargetAsTold) {
  const Store store{
      "content", md5Of("content"), {}, {{"x-amz-meta-mtime", "1234567890.123456789"}}};
  const Store unknown{"content", "version-7"};
  const auto modified = [] { return fs::last_write_time(target()); };
  EXPECT_EQ(outcomeOf(download(store)), "checked");
  const auto original = modified();
  EXPECT_EQ(std::chrono::file_clock::to_sys(original).time_since_epoch(), 1234567890123456789ns);
  EXPECT_EQ(outcomeOf(download(store)), "was there");
  EXPECT_EQ(requests_, Lines{"HEAD"});
  fs::last_write_time(target(), original + 1s);
  EXPECT_EQ(outcomeOf(download(store)), "was there");
  EXPECT_EQ(modified(), original + 1s);

  for (const auto& [there, object] :
       {std::pair(std::string("contend"), store), std::pair(std::string("longer than it"), store),
        std::pair(std::string("content"), unknown)}) {
    SCOPED_TRACE(there);
    testing::writeFile(target(), there);
    const auto refused = download(object);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code(), EEXIST);
    EXPECT_EQ(testing::readFile(target()), there);
    EXPECT_TRUE(download(object, {}, ExistingFile::replace));
    EXPECT_EQ(testing::readFile(target()), "content");
  }
  const auto elsewhere = testDirectory() / "elsewhere";
  testing::writeFile(elsewhere, "untouched");
  fs::remove(target());
  fs::create_symlink(elsewhere, target());
  EXPECT_TRUE(download(store, {}, ExistingFile::replace));
  EXPECT_FALSE(fs::is_symlink(target()));
  EXPECT_EQ(testing::readFile(elsewhere), "untouched");
}

TEST_F(Downloads, AreRefusedWhatIsInTheWayOfTheUnfinishedFile) {
  const Store store{contentOf(kRange + 1)};
  static_cast<void>(download(store, {{kSecond, answer(503)}}, ExistingFile::keep,
                             {.mayRetry = [](auto&&...) { return false; }}));
  ASSERT_EQ(leftovers().size(), 1U);
  const auto unfinished = target().parent_path() / leftovers().front();
  {
    std::optional<int> second;
    const auto first = download(store, {}, ExistingFile::keep, {.progress = [&](auto&&...) {
                                  if (second) return;
                                  second = 0;
                                  ObjectDownloader other(testing::configFor("http://127.0.0.1:1"),
                                                         {.firstRetryDelay = 1ms});
                                  const auto object = testing::run(other.download("k", target()));
                                  second = object ? 0 : static_cast<int>(object.error().code());
                                }});
    EXPECT_EQ(outcomeOf(first), "checked");
    EXPECT_EQ(second, EWOULDBLOCK);
  }
  fs::remove(target());
  const auto elsewhere = testDirectory() / "elsewhere";
  testing::writeFile(elsewhere, "untouched");
  fs::create_symlink(elsewhere, unfinished);
  EXPECT_FALSE(download(store));
  fs::remove(unfinished);
  fs::create_hard_link(elsewhere, unfinished);
  EXPECT_FALSE(download(store));
  EXPECT_EQ(testing::readFile(elsewhere), "untouched");
  EXPECT_FALSE(fs::exists(target()));
}

TEST_F(Downloads, LeaveNothingWhenThereIsNoRoom) {
  const Store store{contentOf(2 * kRange)};
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{.rlim_cur = kRange, .rlim_max = kRange};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const auto object = download(store);
  ASSERT_FALSE(object);
  EXPECT_EQ(object.error().code(), EFBIG);
  EXPECT_EQ(requests_, Lines{kFirst});
  EXPECT_EQ(leftovers(), Lines());
}

}  // namespace
}  // namespace orvane
