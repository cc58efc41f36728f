#include <orvane/platform/http/HttpSession.h>

#include "support/SystemCalls.h"
#include "support/Test.h"

#include <boost/asio/ip/tcp.hpp>

#include <poll.h>

#include <list>

namespace orvane::platform {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using testing::Moment;

HttpRequest requestTo(const std::string& url, std::string method = "GET") {
  return {.method = std::move(method), .url = Url::parse(url).value(), .headers = {}};
}

SharedBytes bodyOf(std::size_t size) { return SharedBytes(Bytes(size, std::byte('x'))); }

Result<HttpResponse> send(const HttpRequest& request, std::size_t bodySize = 0) {
  return HttpSession::shared().sendAndWait(request, bodyOf(bodySize));
}

/// The code of a URL-loading error; 0 for a response.
std::int64_t codeOf(const Result<HttpResponse>& result) {
  if (result) return 0;
  EXPECT_EQ(result.error().domain(), Error::kUrlLoading) << result.error().description();
  return result.error().code();
}

TEST(HttpSession, SendsTheRequestAsItIsGiven) {
  FaultServer server;
  const std::string target = "/b/a%20b//./../%7E+=&'()%2F?x=%20a&y&=1+2";
  const std::tuple<std::string, std::size_t, std::string> cases[] = {
      {"PUT", 5, "Content-Length: 5\r\n"},
      {"PUT", 0, "Content-Length: 0\r\n"},
      {"POST", 0, "Content-Length: 0\r\n"},
      {"GET", 0, ""},
      {"DELETE", 0, ""}};
  for (const auto& [method, bodySize, lengthLine] : cases) {
    auto request = requestTo(server.url() + target, method);
    request.headers.set("Host", "signed.example");
    request.headers.set("X-Padded", "  two  spaces ");
    request.headers.set("X-Empty", "");
    ASSERT_EQ(codeOf(send(request, bodySize)), 0);
    const auto seen = server.requests().back();
    EXPECT_EQ(seen.head, method + " " + target +
                             " HTTP/1.1\r\nHost: signed.example\r\nX-Padded:   two  spaces \r\n"
                             "X-Empty:\r\n" +
                             lengthLine + "\r\n");
    EXPECT_EQ(seen.body, std::string(bodySize, 'x'));
  }
}

TEST(HttpSession, RefusesInjectedLinesBeforeSending) {
  FaultServer server;
  for (const auto& evil : {"a\r\nX: 1"s, "a\nX: 1"s, "a\0b"s}) {
    EXPECT_EQ(codeOf(send(requestTo(server.url(), evil))), -1000);
    for (const auto& [name, value] : {std::pair("X"s, evil), std::pair(evil, "1"s),
                                      std::pair("transfer-encoding"s, "chunked"s)}) {
      auto request = requestTo(server.url(), "PUT");
      request.headers.set(name, value);
      EXPECT_EQ(codeOf(send(request, 5)), -1000) << name;
    }
  }
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(HttpSession, SaysWhatGoesWrongBeforeAResponse) {
  FaultServer proxy;
  proxy.queue(answer(407));
  proxy.queue(answer(502));
  setenv("https_proxy", proxy.url().c_str(), 1);
  const auto closedPort = "127.0.0.1:" + std::to_string(FaultServer().port());
  const std::string connecting = "No connection to the host could be made ";
  const std::tuple<std::string, int, std::string> cases[] = {
      {"ftp://127.0.0.1/", -1002, "The URL's scheme is not supported"},
      {"/only/a/path", -1000, "The request is malformed (no scheme or host)"},
      {"http://me:secret@" + closedPort, -1000,
       "The request is malformed (the URL holds a user name or a password)"},
      {"http://" + closedPort, -1004, connecting + "(Connection refused)"},
      {"https://a.example/", -1013, "The proxy asks for credentials"},
      {"https://a.example/", -1004, connecting + "(the proxy answers 502)"}};
  for (const auto& [url, code, text] : cases) {
    const auto result = send(requestTo(url));
    ASSERT_EQ(codeOf(result), code) << url;
    EXPECT_EQ(result.error().description(), text);
  }
  EXPECT_EQ(codeOf(send(requestTo("http://no-such-host.invalid/"))), -1003);
  const rlimit few{.rlim_cur = 256, .rlim_max = 256};
  setrlimit(RLIMIT_NOFILE, &few);
  while (dup(STDIN_FILENO) >= 0) {
  }
  const auto result = send(requestTo("http://" + closedPort));
  EXPECT_EQ(result.error().domain(), Error::kPosix);
  EXPECT_EQ(result.error().code(), EMFILE);
}

TEST(HttpSession, TriesEveryAddressOfAName) {
  // Neither such a body nor such a response passes in one go.
  FaultServer server([](const auto&) {
    return Reaction{.answer = answerText(200), .sendPace = {.piece = 20, .pause = 50ms}};
  });
  // A port of 127.0.0.2 where connecting gets no answer at all, since nobody accepts.
  asio::io_context context;
  tcp::acceptor silent(context, tcp::v4());
  silent.bind({asio::ip::make_address("127.0.0.2"), server.port()});
  silent.listen(0);
  std::list<tcp::socket> callers;
  for (int i = 0; i < 3; ++i) {
    callers.emplace_back(context).async_connect(silent.local_endpoint(), [](const auto&) {});
  }
  testing::setLookup([](auto) { return std::vector<std::string>{"127.0.0.2", "127.0.0.1"}; });
  const auto host = "http://two.example:" + std::to_string(server.port());
  for (const auto& [proxy, url] : {std::pair(""s, host), std::pair(host, "http://else.example"s)}) {
    setenv("http_proxy", proxy.c_str(), 1);
    auto request = requestTo(url, "PUT");
    request.timeout = 4s;
    // Half of the limit goes to the first address; the second must not wait out the rest.
    const auto limit = std::chrono::steady_clock::now() + request.timeout;
    EXPECT_EQ(codeOf(HttpSession(1).sendAndWait(request, bodyOf(8'000'000))), 0) << url;
    EXPECT_LT(std::chrono::steady_clock::now(), limit);
  }
  unsetenv("http_proxy");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST(HttpSession, TakesEveryCompleteResponseAndNoOther) {
  FaultServer server;
  const auto outcomeOf = [&](const std::string& bytes, Reaction::End end) -> std::string {
    server.queue({.answer = bytes, .end = end});
    const auto result = send(requestTo(server.url(), "PUT"), 10);
    if (!result) return std::to_string(codeOf(result));
    const auto many = result->headers.get("X-MANY");
    return std::to_string(result->status) + " " + result->body + (many ? " |" : "") +
           std::string(many.value_or(""));
  };
  const std::string line(90'000, 'x');
  const std::string continued = "HTTP/1.1 100 Continue\r\nX-Many: wrong\r\n\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {answerText(307, "elsewhere", {{"Location", server.url() + "/other"}}), "307 elsewhere"},
      {answerText(503, "busy", {{"X-Many", "1"}, {"x-many", "2\r\n\t3 \r\n \t4\t5\r\n  "}}),
       "503 busy |1, 2 3 4\t5"},
      {"HTTP/1.1 200 OK\r\n\r\nunmeasured", "200 unmeasured"},
      {answerText(200, "", {{"X-Many", " \"caf\xe9\" "}}), "200  |\"caf\u00e9\""},
      {answerText(200, "", {{"X-Many", "caf\u00e9"}}), "200  |caf\u00e9"},
      {answerText(200, "", {{"X-Many", ""}}), "200  |"},
      {"HTTP/1.1 101 Switching Protocols\r\n\r\nnobody asked", "-1005"},
      {"this is no HTTP\r\n\r\n", "-1011"},
      {answerText(200, "", testing::HeaderList(2000, {"X", "y"})), "-1103"},
      {answerText(200, "", {{"X", line + line}}), "-1103"},
      {answerText(200, "", testing::HeaderList(4, {"X", line})), "-1103"},
      {"HTTP/1.1 200 " + line + line + "\r\n\r\n", "-1103"}};
  for (const auto& [bytes, outcome] : cases) {
    const auto end =
        bytes.contains("Content-Length") ? Reaction::End::keepOpen : Reaction::End::close;
    EXPECT_EQ(outcomeOf(bytes, end), outcome) << bytes.substr(0, 100);
  }
  for (const auto& [whole, outcome] :
       {std::pair(answerText(200, "body", {{"ETag", "\"abc\""}}), "200 body"),
        std::pair(continued + answerText(204), "204 ")}) {
    for (std::size_t size = 1; size < whole.size(); ++size) {
      const auto torn = whole.substr(0, size);
      EXPECT_EQ(outcomeOf(torn, Reaction::End::close), "-1005") << torn;
    }
    EXPECT_EQ(outcomeOf(whole, Reaction::End::keepOpen), outcome);
  }
}

TEST(HttpSession, HearsAnEarlyRefusal) {
  FaultServer server;
  server.queue({.answer = answerText(403), .readAtMost = 0, .end = Reaction::End::reset});
  testing::aroundSend([](Moment moment, int socket, std::string_view bytes) {
    if (moment == Moment::before || !bytes.starts_with("PUT ")) return;
    pollfd reset{.fd = socket, .events = 0, .revents = 0};
    poll(&reset, 1, -1);
  });
  const auto response = send(requestTo(server.url(), "PUT"), 8'000'000);
  testing::aroundSend({});
  ASSERT_TRUE(response) << response.error().description();
  EXPECT_EQ(response->status, 403);
}

TEST(HttpSession, KeepsOfABodyWhatIsNeeded) {
  constexpr std::size_t kMiB = std::size_t{1} << 20;
  // Status, limit, needed whole; where a character of two bytes begins; bytes kept, or -1103.
  const std::tuple<int, std::size_t, bool, std::size_t, std::int64_t> cases[] = {
      {299, 2 * kMiB, true, 0, 2 * kMiB},        {200, 2 * kMiB - 1, true, 0, -1103},
      {200, 2 * kMiB - 1, false, 0, kMiB},       {300, 2 * kMiB - 1, true, 0, kMiB},
      {503, 2 * kMiB, true, kMiB - 1, kMiB - 1}, {503, 2 * kMiB, true, kMiB - 2, kMiB}};
  FaultServer server;
  auto request = requestTo(server.url());
  for (const auto& [status, limit, neededWhole, splitAt, kept] : cases) {
    const auto body = std::string(2 * kMiB, 'x').replace(splitAt, 2, "\u00e9");
    server.queue(answer(status, body));
    request.maximumAnswerSize = limit;
    request.needsWholeAnswer = neededWhole;
    const auto response = send(request);
    ASSERT_EQ(codeOf(response), std::min<std::int64_t>(kept, 0)) << status << " of " << limit;
    if (!response) continue;
    EXPECT_EQ(response->status, status);
    EXPECT_TRUE(response->body == body.substr(0, static_cast<std::size_t>(kept))) << kept;
  }
}

TEST(HttpSession, TimesOutOnlyWithoutProgress) {
  FaultServer server;
  auto request = requestTo(server.url(), "PUT");
  const auto codeFor = [&](std::chrono::milliseconds timeout, const Reaction& reaction) {
    request.timeout = timeout;
    server.queue(reaction);
    return codeOf(send(request, 10'000'000));
  };
  // Neither 20 pieces of a body read slowly nor a dripping answer stalls for so long.
  const Reaction slow{.answer = answerText(200, "0123456789"),
                      .readPace = {.piece = 500'000, .pause = 30ms},
                      .sendPace = {.piece = 6, .pause = 60ms}};
  EXPECT_EQ(codeFor(400ms, slow), 0);
  EXPECT_EQ(codeFor(std::chrono::milliseconds::max(), slow), 0);
  for (const auto& stall :
       {testing::stallAfter(0), testing::stallAfter(1'000'000),
        Reaction{
            .answer = answerText(200, "half"), .sendAtMost = 30, .end = Reaction::End::stall}}) {
    EXPECT_EQ(codeFor(400ms, stall), -1001);
  }
}

/// Leaves a session with so many idle connections.
void keepIdle(HttpSession& session, FaultServer& server, std::size_t count) {
  const testing::Gate gate;
  std::latch done(static_cast<std::ptrdiff_t>(count));
  for (std::size_t i = 0; i < count; ++i) {
    server.queue({.answer = answerText(200), .gate = gate});
    session.start(requestTo(server.url()), {}, {}, [&](const auto&) { done.count_down(); });
  }
  server.waitForRequests(count);
  gate.open();
  done.wait();
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
  const std::pair<std::string, std::size_t> requests[] = {
      {"POST", 0}, {"POST", 50'000}, {"PUT", kBody}, {"PUT", 100}, {"DELETE", 0}, {"GET", 0}};
  const Reaction endAfterBody{.answer = "", .end = Reaction::End::close};
  const Reaction tornResponse{.answer = "HTTP/1.1 ", .end = Reaction::End::close};
  const std::tuple<std::string, std::size_t, Reaction> closings[] = {
      {"before reading", 1, answer(200)},
      {"before reading, every time", 9, answer(200)},
      {"after the head", 0, testing::resetAfter(0)},
      {"in mid-body", 0, testing::resetAfter(kBody / 2)},
      {"after the body", 0, endAfterBody},
      {"after a piece of a response", 0, tornResponse}};
  for (const auto& [method, bodySize] : requests) {
    for (const auto& [moment, closedBefore, reaction] : closings) {
      for (const std::size_t idle : {0U, 1U, 6U}) {
        SCOPED_TRACE(::testing::Message()
                     << method << " of " << bodySize << ", " << idle << " idle, closed " << moment);
        FaultServer server([&](const auto&) { return reaction; });
        HttpSession session(1);
        keepIdle(session, server, idle);
        closeBeforeRequests(server, closedBefore);
        const auto request = requestTo(server.url() + "/now", method);
        const auto code = codeOf(session.sendAndWait(request, bodyOf(bodySize)));
        // Only what no server can have read is sent again, on a connection of its own.
        const bool again = closedBefore == 1 && idle > 0 && method != "POST";
        EXPECT_EQ(code, again ? 0 : -1005);
        EXPECT_EQ(server.requests().size() - idle, again || closedBefore == 0 ? 1U : 0U);
        testing::aroundSend({});
      }
    }
  }
}

TEST(HttpSession, ReportsProgressThenCompletionOnceFromCallbacksThatMaySend) {
  FaultServer server;
  constexpr std::int64_t kSize = 5'000'000;
  for (const std::size_t width : {1U, 4U}) {
    std::vector<std::int64_t> sent;
    std::promise<std::int64_t> done;  // Which a second completion could not set.
    HttpSession(width).start(
        requestTo(server.url(), "PUT"), bodyOf(kSize),
        [&](std::int64_t count, std::int64_t total) {
          EXPECT_EQ(total, kSize);
          sent.push_back(count);
        },
        [&](const Result<HttpResponse>& result) {
          EXPECT_EQ(codeOf(result), 0);
          EXPECT_EQ(codeOf(send(requestTo(server.url()))), 0);
          done.set_value(sent.empty() ? 0 : sent.back());
        });
    EXPECT_EQ(done.get_future().get(), kSize);
    EXPECT_TRUE(std::ranges::is_sorted(sent));
  }
  EXPECT_EQ(server.connectionCount(), 3U) << "sessions share none, but keep their own";
}

TEST(HttpSession, CoroutinesResumeOnTheirHostAndMayBeCancelled) {
  FaultServer server([](const auto&) { return testing::stallAfter(0); });
  server.queue(answer(200));
  asio::io_context host;
  asio::cancellation_signal cancel;
  std::vector<std::pair<std::int64_t, std::thread::id>> resumed;
  const auto record = [&](const std::exception_ptr&, const Result<HttpResponse>& response) {
    resumed.emplace_back(codeOf(response), std::this_thread::get_id());
  };
  // The sessions go at once.
  asio::co_spawn(host, HttpSession(1).send(requestTo(server.url())), record);
  host.run();
  host.restart();
  asio::co_spawn(host, HttpSession(1).send(requestTo(server.url())),
                 asio::bind_cancellation_slot(cancel.slot(), record));
  asio::post(host, [&] { cancel.emit(asio::cancellation_type::terminal); });
  host.run();
  const auto here = std::this_thread::get_id();
  EXPECT_THAT(resumed, ElementsAre(std::pair(0, here), std::pair(-999, here)));
}

}  // namespace
}  // namespace orvane::platform
