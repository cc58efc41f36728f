#include <orvane/platform/http/HttpSession.h>

#include <orvane/platform/files/FileDescriptor.h>
#include <orvane/platform/http/UrlError.h>

#include "support/ChildProcess.h"
#include "support/FaultServer.h"
#include "support/SystemCalls.h"
#include "support/TemporaryDirectory.h"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

namespace orvane::platform {
namespace {

using namespace std::chrono_literals;
using testing::answer;
using testing::answerText;
using testing::FaultServer;
using testing::Moment;
using testing::Reaction;

HttpRequest requestTo(const std::string& url, std::string method = "GET") {
  return {.method = std::move(method), .url = Url::parse(url).value(), .headers = {}};
}

SharedBytes bodyOf(std::size_t size, char fill = 'x') {
  return SharedBytes(Bytes(size, static_cast<std::byte>(fill)));
}

/// The code of a URL-loading error; 0 for an answer.
int codeOf(const Result<HttpResponse>& result) {
  if (result) return 0;
  EXPECT_EQ(result.error().domain(), Error::kUrlLoading) << result.error().description();
  return static_cast<int>(result.error().code());
}

TEST(HttpSession, SendsTheRequestAsItIsGiven) {
  FaultServer server;
  auto request = requestTo(server.url() + "/b/a%20b//./../%7E+=&'()%2F?x=%20a&y&=1+2", "PUT");
  request.headers.set("Host", "signed.example");
  request.headers.set("X-Padded", "  two  spaces ");
  request.headers.set("X-Empty", "");
  ASSERT_EQ(codeOf(HttpSession::shared().sendAndWait(request, bodyOf(5))), 0);

  const auto seen = server.requests().at(0);
  EXPECT_EQ(seen.target(), "/b/a%20b//./../%7E+=&'()%2F?x=%20a&y&=1+2");
  EXPECT_EQ(seen.head,
            "PUT /b/a%20b//./../%7E+=&'()%2F?x=%20a&y&=1+2 HTTP/1.1\r\nHost: signed.example\r\n"
            "X-Padded:   two  spaces \r\nX-Empty:\r\nContent-Length: 5\r\n\r\n");
  EXPECT_EQ(seen.body, "xxxxx");
}

TEST(HttpSession, SaysTheLengthOfAnEmptyBodyOnlyWhereOneBelongs) {
  FaultServer server;
  for (const std::string method : {"PUT", "POST", "GET", "DELETE"}) {
    ASSERT_EQ(codeOf(HttpSession::shared().sendAndWait(requestTo(server.url() + "/", method))), 0);
    const auto seen = server.requests().back();
    EXPECT_EQ(seen.method(), method);
    EXPECT_EQ(seen.header("Content-Length").has_value(), method == "PUT" || method == "POST");
    EXPECT_FALSE(seen.header("Content-Type") || seen.header("Expect") || seen.header("Accept"));
  }
}

TEST(HttpSession, RefusesInjectedLinesBeforeSending) {
  FaultServer server;
  for (const std::string& evil : std::vector<std::string>{"a\r\nX: 1", "a\nX: 1", {"a\0b", 3}}) {
    auto value = requestTo(server.url());
    value.headers.set("X-Value", evil);
    EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(value)), -1000);
    auto name = requestTo(server.url());
    name.headers.set(evil, "1");
    EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(name)), -1000);
    EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(requestTo(server.url(), evil))), -1000);
  }
  auto reframed = requestTo(server.url(), "PUT");
  reframed.headers.set("transfer-encoding", "chunked");
  EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(reframed, bodyOf(5))), -1000);
  EXPECT_EQ(server.connectionCount(), 0U);
}

void expectError(const std::string& url, int code, std::string_view beginning) {
  const auto result = HttpSession::shared().sendAndWait(requestTo(url));
  ASSERT_EQ(codeOf(result), code) << url;
  EXPECT_TRUE(result.error().description().starts_with(beginning)) << result.error().description();
}

TEST(HttpSession, SaysWhatGoesWrongBeforeAnAnswer) {
  const auto closedPort = "127.0.0.1:" + std::to_string(FaultServer().port());
  const std::string connecting = "No connection to the host could be made ";
  expectError("http://no-such-host.invalid/", -1003, "The host's name could not be resolved");
  expectError("ftp://127.0.0.1/", -1002, "The URL's scheme is not supported");
  expectError("/only/a/path", -1000, "The request is malformed (no scheme or host)");
  expectError("http://me:secret@" + closedPort, -1000,
              "The request is malformed (the URL holds a user name or a password)");
  expectError("http://" + closedPort, -1004, connecting + "(Connection refused)");

  FaultServer proxy;
  setenv("https_proxy", proxy.url().c_str(), 1);
  proxy.queue(answer(407));
  expectError("https://a.example/", -1013, "The proxy asks for credentials");
  proxy.queue(answer(502));
  expectError("https://a.example/", -1004, connecting + "(the proxy answers 502)");

  const rlimit few{.rlim_cur = 256, .rlim_max = 256};
  setrlimit(RLIMIT_NOFILE, &few);
  while (dup(STDIN_FILENO) >= 0) {
  }
  const auto result = HttpSession::shared().sendAndWait(requestTo("http://" + closedPort));
  EXPECT_EQ(result.error().domain(), Error::kPosix);
  EXPECT_EQ(result.error().code(), EMFILE);
}

/// A port of 127.0.0.2 where connecting gets no answer at all, since nobody accepts.
class SilentPort {
 public:
  explicit SilentPort(std::uint16_t port) {
    auto* const address = reinterpret_cast<sockaddr*>(&address_);
    address_.sin_family = AF_INET;
    address_.sin_port = htons(port);
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    EXPECT_EQ(bind(newSocket(), address, sizeof address_), 0);
    EXPECT_EQ(listen(sockets_.front().get(), 0), 0);
    for (int i = 0; i < 3; ++i) connect(newSocket(), address, sizeof address_);
  }

 private:
  int newSocket() {
    sockets_.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return sockets_.back().get();
  }

  sockaddr_in address_{};
  std::vector<FileDescriptor> sockets_;
};

TEST(HttpSession, TriesEveryAddressOfAName) {
  // Neither such a body nor such a response passes in one go.
  FaultServer server([](const auto&) {
    return Reaction{.answer = answerText(200), .sendPace = {.piece = 20, .pause = 50ms}};
  });
  const SilentPort silent(server.port());
  testing::setLookup(
      [](std::string_view) -> std::vector<std::string> { return {"127.0.0.2", "127.0.0.1"}; });
  const auto host = "http://two.example:" + std::to_string(server.port());
  for (const auto& [proxy, url] :
       {std::pair<std::string, std::string>{"", host + "/"}, {host, "http://elsewhere.example/"}}) {
    setenv("http_proxy", proxy.c_str(), 1);
    HttpSession session(1);
    auto request = requestTo(url, "PUT");
    request.timeout = 4s;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(codeOf(session.sendAndWait(request, bodyOf(8'000'000))), 0) << url;
    // Half of the limit goes to the first address; the second must not wait out the rest.
    EXPECT_LT(std::chrono::steady_clock::now() - start, request.timeout);
  }
  unsetenv("http_proxy");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST(HttpSession, TreatsEveryCompleteAnswerAsAnAnswer) {
  FaultServer server;
  const struct {
    Reaction reaction;
    int status;
    std::string body;
  } cases[] = {
      {answer(204), 204, ""},
      {answer(307, "elsewhere", {{"Location", server.url() + "/other"}}), 307, "elsewhere"},
      {answer(503, "busy"), 503, "busy"},
      {{.answer = "HTTP/1.1 100 Continue\r\nETag: wrong\r\n\r\n" + answerText(200, "late")},
       200,
       "late"},
      {{.answer = "HTTP/1.1 200 OK\r\n\r\nunmeasured", .end = Reaction::End::close},
       200,
       "unmeasured"},
      {{.answer = answerText(200, "drop by drop"), .sendPace = {.piece = 1, .pause = 1ms}},
       200,
       "drop by drop"},
  };
  for (const auto& [reaction, status, body] : cases) {
    server.queue(reaction);
    const auto response =
        HttpSession::shared().sendAndWait(requestTo(server.url() + "/x", "PUT"), bodyOf(10));
    ASSERT_TRUE(response) << response.error().description();
    EXPECT_EQ(response->status, status);
    EXPECT_TRUE(response->body == body) << status;
    EXPECT_FALSE(response->headers.get("ETag"));
  }
  EXPECT_EQ(server.requests().size(), std::size(cases));
}

TEST(HttpSession, HearsAnEarlyRefusal) {
  FaultServer server;
  server.queue({.answer = answerText(403), .readAtMost = 0, .end = Reaction::End::reset});
  testing::aroundSend([](Moment moment, int socket, std::string_view bytes) {
    if (moment == Moment::before || !bytes.starts_with("PUT ")) return;
    pollfd reset{.fd = socket, .events = 0, .revents = 0};
    poll(&reset, 1, -1);
  });
  const auto response =
      HttpSession::shared().sendAndWait(requestTo(server.url(), "PUT"), bodyOf(8'000'000));
  testing::aroundSend({});
  ASSERT_TRUE(response) << response.error().description();
  EXPECT_EQ(response->status, 403);
}

TEST(HttpSession, TakesNoAnswerThatIsNotWholeOrNoHttp) {
  FaultServer server;
  for (const auto& whole : {answerText(200, "body", {{"ETag", "\"abc\""}}),
                            "HTTP/1.1 100 Continue\r\n\r\n" + answerText(204)}) {
    for (std::size_t size = 1; size < whole.size(); ++size) {
      server.queue({.answer = whole, .sendAtMost = size, .end = Reaction::End::close});
      EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(requestTo(server.url(), "PUT"))), -1005)
          << whole.substr(0, size);
    }
    server.queue({.answer = whole, .end = Reaction::End::close});
    EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(requestTo(server.url(), "PUT"))), 0);
  }
  for (const auto& [wrong, code] :
       {std::pair("HTTP/1.1 101 Switching Protocols\r\n\r\nnobody asked", -1005),
        std::pair("this is no HTTP\r\n\r\n", -1011)}) {
    server.queue({.answer = wrong, .end = Reaction::End::close});
    EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(requestTo(server.url(), "PUT"))), code);
  }
}

TEST(HttpSession, CombinesFieldsAndMakesThemText) {
  FaultServer server;
  server.queue(answer(200, "",
                      {{"X-Many", "1"},
                       {"x-many", "2\r\n\t3 \r\n \t4\t5\r\n  "},
                       {"eTaG", " \"caf\xe9\" "},
                       {"Text", "caf\u00e9"},
                       {"Empty", ""}}));
  const auto response = HttpSession::shared().sendAndWait(requestTo(server.url())).value();
  EXPECT_EQ(response.headers.get("X-MANY"), "1, 2 3 4\t5");
  EXPECT_EQ(response.headers.get("ETag"), "\"caf\u00e9\"");
  EXPECT_EQ(response.headers.get("Text"), "caf\u00e9");
  EXPECT_EQ(response.headers.get("Empty"), "");
}

TEST(HttpSession, KeepsOfAnAnswerWhatIsNeeded) {
  constexpr std::size_t kMiB = std::size_t{1} << 20;
  const auto withAt = [](std::size_t position, const char* character) {
    return std::string(2 * kMiB, 'x')
        .replace(position, std::string_view(character).size(), character);
  };
  const struct {
    int status;
    std::string body;
    std::size_t limit;
    bool neededWhole;
    std::optional<std::size_t> kept;  ///< Nothing: too long.
  } cases[] = {
      {299, withAt(0, ""), 2 * kMiB, true, 2 * kMiB},
      {200, withAt(0, ""), 2 * kMiB - 1, true, std::nullopt},
      {200, withAt(0, ""), 2 * kMiB, false, kMiB},
      {200, withAt(0, ""), 2 * kMiB - 1, false, kMiB},
      {300, withAt(0, ""), 2 * kMiB - 1, true, kMiB},
      // No character is cut.
      {503, withAt(kMiB - 1, "\u00e9"), 2 * kMiB, true, kMiB - 1},
      {503, withAt(kMiB - 3, "\U0001f600"), 2 * kMiB, true, kMiB - 3},
      {503, withAt(kMiB - 4, "\U0001f600"), 2 * kMiB, true, kMiB},
  };
  FaultServer server;
  auto request = requestTo(server.url());
  for (const auto& [status, body, limit, neededWhole, kept] : cases) {
    server.queue(answer(status, body));
    request.maximumAnswerSize = limit;
    request.needsWholeAnswer = neededWhole;
    const auto response = HttpSession::shared().sendAndWait(request);
    ASSERT_EQ(codeOf(response), kept ? 0 : -1103) << status << " of " << limit;
    if (!kept) continue;
    EXPECT_EQ(response->status, status);
    EXPECT_TRUE(response->body == body.substr(0, *kept)) << response->body.size();
  }
}

TEST(HttpSession, LimitsTheHeadOfAnAnswer) {
  FaultServer server;
  const std::string line(90'000, 'x');
  for (const auto& head : {answerText(200, "", testing::HeaderList(2000, {"X", "y"})),
                           answerText(200, "", {{"X", line + line}}),
                           answerText(200, "", testing::HeaderList(4, {"X", line})),
                           "HTTP/1.1 200 " + line + line + "\r\n\r\n"}) {
    server.queue({.answer = head, .end = Reaction::End::close});
    EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(requestTo(server.url()))), -1103)
        << head.size();
  }
}

TEST(HttpSession, TimesOutOnlyWithoutProgress) {
  FaultServer server;
  auto request = requestTo(server.url(), "PUT");
  request.timeout = 400ms;
  // Neither 20 pieces of a body read slowly nor a dripping answer stalls for so long.
  server.queue({.answer = answerText(200), .readPace = {.piece = 500'000, .pause = 50ms}});
  EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(request, bodyOf(10'000'000))), 0);
  server.queue({.answer = answerText(200, "0123456789"), .sendPace = {.piece = 4, .pause = 60ms}});
  EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(request)), 0);

  request.timeout = std::chrono::milliseconds::max();
  server.queue({.answer = answerText(200), .sendPace = {.piece = 20, .pause = 600ms}});
  EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(request)), 0);

  request.timeout = 400ms;
  for (const auto& stall :
       {testing::stallAfter(0), testing::stallAfter(1'000'000),
        Reaction{
            .answer = answerText(200, "half"), .sendAtMost = 30, .end = Reaction::End::stall}}) {
    server.queue(stall);
    EXPECT_EQ(codeOf(HttpSession::shared().sendAndWait(request, bodyOf(10'000'000))), -1001);
  }
}

TEST(HttpSession, ReusesConnectionsWithinOneSessionOnly) {
  FaultServer server;
  HttpSession other(1);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(codeOf(HttpSession::shared().sendAndWait(requestTo(server.url()))), 0);
    ASSERT_EQ(codeOf(other.sendAndWait(requestTo(server.url()))), 0);
  }
  EXPECT_EQ(server.connectionCount(), 2U);
}

/// Leaves a session with so many idle connections.
void keepIdle(HttpSession& session, FaultServer& server, std::size_t count) {
  const testing::Gate gate;
  std::vector<std::promise<int>> done(count);
  for (auto& promise : done) {
    server.queue({.answer = answerText(200), .gate = gate});
    session.start(requestTo(server.url()), {}, {},
                  [&](const auto& result) { promise.set_value(codeOf(result)); });
  }
  server.waitForRequests(count);
  gate.open();
  for (auto& promise : done) EXPECT_EQ(promise.get_future().get(), 0);
}

/// So many of the next requests find that the server has closed every connection just before.
void closeBeforeRequests(FaultServer& server, std::size_t times) {
  testing::aroundSend([&server, times, closed = std::size_t{0}](Moment moment, int /*socket*/,
                                                                std::string_view bytes) mutable {
    if (moment == Moment::after || !bytes.contains(" /now ") || times == 0) return;
    --times;
    while (server.connectionCount() == closed) std::this_thread::yield();
    closed = server.connectionCount();
    server.closeConnections();
  });
}

TEST(HttpSession, ServersSeeARequestOnce) {
  constexpr std::size_t kBody = 8'000'000;
  const struct {
    const char* name;
    const char* method;
    std::size_t bodySize;
  } requests[] = {{"initiate", "POST", 0}, {"complete", "POST", 50'000}, {"part", "PUT", kBody},
                  {"put", "PUT", 100},     {"abort", "DELETE", 0},       {"get, list", "GET", 0}};
  const struct {
    const char* moment;
    std::size_t closedBefore;
    Reaction reaction;
    bool isRead;
  } closings[] = {
      {"before reading", 1, answer(200), false},
      {"before reading, every time", 9, answer(200), false},
      {"after the head", 0, testing::resetAfter(0), true},
      {"in mid-body", 0, testing::resetAfter(kBody / 2), true},
      {"after the body", 0, {.answer = "", .end = Reaction::End::close}, true},
      {"after a piece of an answer", 0, {.answer = "HTTP/1.1 ", .end = Reaction::End::close}, true},
  };
  for (const auto& request : requests) {
    for (const auto& closing : closings) {
      for (const std::size_t idle : {0U, 1U, 6U}) {
        FaultServer server([&](const auto&) { return closing.reaction; });
        HttpSession session(1);
        keepIdle(session, server, idle);
        closeBeforeRequests(server, closing.closedBefore);
        const int code = codeOf(session.sendAndWait(
            requestTo(server.url() + "/now", request.method), bodyOf(request.bodySize)));
        // Only what no server can have read is sent again, on a connection of its own.
        const bool again =
            closing.closedBefore == 1 && idle > 0 && std::string_view(request.method) != "POST";
        const auto where = ::testing::Message()
                           << request.name << ", " << idle << " idle, closed " << closing.moment;
        EXPECT_EQ(code, again ? 0 : -1005) << where;
        EXPECT_EQ(server.requests().size() - idle, again || closing.isRead ? 1U : 0U) << where;
        testing::aroundSend({});
      }
    }
  }
}

TEST(HttpSession, ReportsProgressThenCompletionOnce) {
  FaultServer server;
  constexpr std::int64_t kSize = 5'000'000;
  for (const std::size_t width : {1U, 4U}) {
    std::vector<std::int64_t> sent;
    int completions = 0;
    std::promise<void> done;
    HttpSession(width).start(
        requestTo(server.url(), "PUT"), bodyOf(kSize),
        [&](std::int64_t count, std::int64_t total) {
          EXPECT_EQ(completions, 0);
          EXPECT_EQ(total, kSize);
          sent.push_back(count);
        },
        [&](const Result<HttpResponse>& result) {
          EXPECT_EQ(codeOf(result), 0);
          ++completions;
          done.set_value();
        });
    done.get_future().get();
    ASSERT_FALSE(sent.empty());
    EXPECT_TRUE(std::ranges::is_sorted(sent));
    EXPECT_EQ(sent.back(), kSize);
    EXPECT_EQ(completions, 1);
  }
}

TEST(HttpSession, KeepsACallbackLimitPerSession) {
  FaultServer server;
  HttpSession session(2);
  std::atomic<int> begun = 0;
  std::vector<std::promise<void>> done(8);
  const testing::Gate gate;
  for (auto& promise : done) {
    session.start(requestTo(server.url()), {}, {}, [&](const Result<HttpResponse>&) {
      ++begun;
      gate.wait({});
      promise.set_value();
    });
  }
  server.waitForRequests(done.size());
  while (begun < 2) std::this_thread::yield();  // Two really run side by side.
  // By the time that later callbacks have run elsewhere, a third one here would have begun.
  for (int i = 0; i < 50; ++i) {
    std::promise<void> later;
    HttpSession::shared().start(requestTo(server.url()), {}, {},
                                [&](const Result<HttpResponse>&) { later.set_value(); });
    later.get_future().get();
  }
  EXPECT_EQ(begun, 2);
  gate.open();
  for (auto& promise : done) promise.get_future().get();
}

TEST(HttpSession, BlockingCallsWorkInsideCallbacks) {
  FaultServer server;
  std::promise<int> inner;
  HttpSession::shared().start(requestTo(server.url()), {}, {}, [&](const Result<HttpResponse>&) {
    inner.set_value(codeOf(HttpSession::shared().sendAndWait(requestTo(server.url()))));
  });
  EXPECT_EQ(inner.get_future().get(), 0);
}

TEST(HttpSession, CoroutinesResumeOnASingleThreadedHost) {
  FaultServer server;
  boost::asio::io_context host;
  Async<HttpResponse> sending = HttpSession(1).send(requestTo(server.url()));  // Session goes.
  std::thread::id resumedOn;
  auto work = [&]() -> boost::asio::awaitable<int> {
    const auto response = co_await std::move(sending);
    resumedOn = std::this_thread::get_id();
    co_return codeOf(response);
  };
  auto result = boost::asio::co_spawn(host, work(), boost::asio::use_future);
  host.run();
  EXPECT_EQ(result.get(), 0);
  EXPECT_EQ(resumedOn, std::this_thread::get_id());
}

/// For the sanitizers: nothing of the engine may touch a host's executor that has run out of work.
TEST(HttpSession, AHostMayGoOnceItsCoroutinesAreDone) {
  FaultServer server;
  for (int round = 0; round < 20; ++round) {
    int failures = 0;
    boost::asio::io_context host;
    for (int i = 0; i < 3; ++i) {
      boost::asio::co_spawn(host, HttpSession::shared().send(requestTo(server.url())),
                            [&](const std::exception_ptr&, const Result<HttpResponse>& answer) {
                              failures += answer ? 0 : 1;
                            });
    }
    EXPECT_GE(host.run(), 3U);
    EXPECT_EQ(failures, 0);
  }
}

TEST(HttpSession, CancellingACoroutineEndsItsTransfer) {
  FaultServer server([](const auto&) { return testing::stallAfter(0); });
  boost::asio::io_context host;
  boost::asio::cancellation_signal cancel;
  auto result = boost::asio::co_spawn(
      host, HttpSession::shared().send(requestTo(server.url())),
      boost::asio::bind_cancellation_slot(cancel.slot(), boost::asio::use_future));
  std::thread runner([&] { host.run(); });
  server.waitForRequests(1);
  boost::asio::post(host, [&] { cancel.emit(boost::asio::cancellation_type::terminal); });
  runner.join();
  EXPECT_EQ(codeOf(result.get()), -999);
}

}  // namespace
}  // namespace orvane::platform
