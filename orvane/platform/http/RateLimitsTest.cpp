#include <orvane/platform/http/RateLimits.h>

#include <orvane/platform/http/HttpSession.h>
#include <orvane/platform/http/internal/RateGate.h>

#include "support/Test.h"

namespace orvane::platform {
namespace {

using Clock = RateGate::Clock;

/// Passengers that always have bytes to send, on a clock of their own.
struct Traffic {
  explicit Traffic(std::size_t count) : passengers(count), sent(count) {
    for (auto& passenger : passengers) passenger.resume = [] {};
  }

  void runFor(std::chrono::milliseconds duration) {
    for (const auto end = now + duration; now < end; now += 1ms) {
      gate.resumeNext(now);
      for (std::size_t i = 0; i < passengers.size(); ++i) {
        sent[i] += static_cast<double>(gate.admit(passengers[i], 1 << 20, now));
      }
    }
  }
  [[nodiscard]] double total() const { return std::accumulate(sent.begin(), sent.end(), 0.0); }

  RateGate gate;
  std::vector<RateGate::Passenger> passengers;
  std::vector<double> sent;
  Clock::time_point now{1h};
};

TEST(RateLimits, AreKeptAndSharedAndMayChange) {
  for (const double rate : {20e3, 300e3, 5e6, 200e6}) {
    SCOPED_TRACE(rate);
    Traffic traffic(5);
    traffic.gate.setRate(static_cast<std::int64_t>(rate), traffic.now);
    traffic.now += 10s;  // Nobody sends; that is not made up for.
    traffic.runFor(10s);
    EXPECT_NEAR(traffic.total(), 10 * rate, 0.5 * rate);
    for (const auto sent : traffic.sent) EXPECT_NEAR(sent, 2 * rate, 0.2 * rate);

    traffic.gate.leave(traffic.passengers.back());
    traffic.passengers.pop_back();
    traffic.gate.setRate(static_cast<std::int64_t>(rate / 2), traffic.now);
    const auto before = traffic.total();
    traffic.runFor(10s);
    EXPECT_NEAR(traffic.total() - before, 5 * rate, 0.25 * rate);
  }
}

/// At a thousand bytes a second both would take an hour.
TEST(RateLimits, HoldForTransfersUnderWayUntilTheyAreLifted) {
  const std::string content(4 << 20, 'x');
  FaultServer server([&](const RecordedRequest&) { return answer(200, content); });
  HttpSession session(2);
  const auto url = Url::parse(server.url() + "/").value();
  setRateLimits({.upload = 1000, .download = 1000});
  std::promise<Result<HttpResponse>> down;
  std::promise<Result<HttpResponse>> up;
  std::atomic<std::int64_t> sent = 0;
  session.start({.method = "GET", .url = url, .headers = {}}, {}, {},
                [&](Result<HttpResponse> response) { down.set_value(std::move(response)); });
  session.start(
      {.method = "PUT", .url = url, .headers = {}}, SharedBytes(Bytes(content.size())),
      [&](std::int64_t count, auto) { sent = count; },
      [&](Result<HttpResponse> response) { up.set_value(std::move(response)); });
  auto downloaded = down.get_future();
  auto uploaded = up.get_future();
  static_cast<void>(server.waitForRequests(2));
  EXPECT_EQ(downloaded.wait_for(300ms), std::future_status::timeout);
  EXPECT_LE(sent, 10'000);
  setRateLimits({});
  EXPECT_EQ(downloaded.get().value().body, content);
  EXPECT_EQ(uploaded.get().value().status, 200);
  EXPECT_EQ(sent, std::ssize(content));
}

}  // namespace
}  // namespace orvane::platform
