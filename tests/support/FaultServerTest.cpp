#include "support/FaultServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <utility>

namespace orvane::testing {
namespace {

/// A plain connection; what it receives is not interpreted.
class RawClient {
 public:
  explicit RawClient(const FaultServer& server)
      : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("connect");
    }
  }

  void send(std::string_view bytes) {
    EXPECT_EQ(::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }

  [[nodiscard]] bool hasReceived() const {
    char byte = 0;
    return recv(socket_.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
  }

  /// So many bytes, or fewer when the connection ends before; `error` is then 0 or errno.
  std::string receive(std::size_t count, int* error = nullptr) {
    std::string received;
    std::array<char, 256> chunk{};
    while (received.size() < count) {
      const ssize_t got =
          recv(socket_.get(), chunk.data(), std::min(chunk.size(), count - received.size()), 0);
      if (error != nullptr) *error = got < 0 ? errno : 0;
      if (got <= 0) break;
      received.append(chunk.data(), static_cast<std::size_t>(got));
    }
    return received;
  }

 private:
  platform::FileDescriptor socket_;
};

constexpr std::size_t kMore = 1000;

TEST(FaultServerTest, EndsConnectionsAsScripted) {
  for (const auto& [end, expected] :
       {std::pair(Reaction::End::close, 0), std::pair(Reaction::End::reset, ECONNRESET)}) {
    FaultServer server;
    server.queue(
        {.answer = answerText(200, "body"), .readAtMost = 3, .sendAtMost = 10, .end = end});
    RawClient client(server);
    client.send("PUT / HTTP/1.1\r\nContent-Length: 6\r\n\r\nabcdef");
    int error = -1;
    EXPECT_EQ(client.receive(kMore, &error), "HTTP/1.1 2");
    EXPECT_EQ(error, expected);
    EXPECT_EQ(server.requests().at(0).body, "abc");
  }
}

TEST(FaultServerTest, AnswersBeforeTheBodyAndKeepsTheConnection) {
  FaultServer server;
  server.queue({.answer = answerText(503), .readAtMost = 0});
  RawClient client(server);
  client.send("PUT / HTTP/1.1\r\nContent-Length: 6\r\n\r\nabc");
  EXPECT_EQ(client.receive(answerText(503).size()), answerText(503));
  client.send("defGET /next HTTP/1.1\r\n\r\n");
  EXPECT_EQ(client.receive(answerText(200).size()), answerText(200));
  EXPECT_EQ(server.requests().at(1).target(), "/next");
}

TEST(FaultServerTest, HoldsUntilReleased) {
  FaultServer server;
  const Gate gate;
  server.queue({.answer = "0123456789",
                .gate = gate,
                .sendPace = {.piece = 1, .pause = std::chrono::milliseconds(1)}});
  RawClient client(server);
  client.send("GET / HTTP/1.1\r\n\r\n");
  server.waitForRequests(1);
  EXPECT_FALSE(client.hasReceived());
  gate.open();
  EXPECT_EQ(client.receive(10), "0123456789");
}

TEST(FaultServerTest, GoesWhileConnectionsAreStalled) {
  auto server = std::make_unique<FaultServer>();
  server->queue(stallAfter(0));
  server->queue({.answer = "x", .gate = Gate()});
  server->queue({.answer = std::string(64 << 20, 'x')});  // nobody receives it
  std::vector<std::unique_ptr<RawClient>> clients;
  for (std::size_t i = 1; i <= 3; ++i) {
    clients.push_back(std::make_unique<RawClient>(*server));
    clients.back()->send("GET / HTTP/1.1\r\n\r\n");
    server->waitForRequests(i);
  }
  server.reset();
  EXPECT_EQ(clients[0]->receive(kMore), "");
  EXPECT_EQ(clients[1]->receive(kMore), "");
}

}  // namespace
}  // namespace orvane::testing
