// The way to the object store, on which one request in twenty is lost. A process of its own, so
// that neither its memory nor its descriptors are taken for the engine's.

#include <orvane/platform/Ascii.h>
#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "support/ChildProcess.h"
#include "support/FaultServer.h"

namespace orvane::soak {
namespace {

using boost::asio::use_awaitable;
using boost::asio::ip::tcp;
using Task = boost::asio::awaitable<void>;

constexpr std::uint64_t kRequestsPerFault = 20;

/// Where the connection is reset.
enum class Fault { beforeBody, withinRequest, beforeAnswer, withinAnswer, none };
constexpr std::uint64_t kFaults = 4;

Fault nextFault(std::uint64_t& requests) {
  if (++requests % kRequestsPerFault != 0) return Fault::none;
  return static_cast<Fault>(requests / kRequestsPerFault % kFaults);
}

std::size_t bodySize(std::string head) {
  const testing::RecordedRequest request{.head = std::move(head), .body = {}};
  return std::stoul(request.header("Content-Length").value_or("0"));
}

/// A client's connection and the one to the store that belongs to it.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(tcp::socket client, std::uint64_t& requests)
      : client_(std::move(client)), store_(client_.get_executor()), requests_(requests) {}

  Task run(tcp::endpoint store) {
    co_await store_.async_connect(store, use_awaitable);
    const auto end = [self = shared_from_this()](const std::exception_ptr&) { self->close(); };
    boost::asio::co_spawn(client_.get_executor(), passAnswers(), end);
    boost::asio::co_spawn(client_.get_executor(), passRequests(), end);
  }

 private:
  Task passRequests() {
    std::string received;
    for (;;) {
      const auto headSize = co_await boost::asio::async_read_until(
          client_, boost::asio::dynamic_buffer(received), "\r\n\r\n", use_awaitable);
      fault_ = nextFault(requests_);
      if (fault_ == Fault::beforeBody) co_return reset();
      auto left = headSize + bodySize(received.substr(0, headSize));
      if (fault_ == Fault::withinRequest) left /= 2;
      while (left > 0) {
        if (received.empty()) co_await receive(received);
        const auto count = std::min(left, received.size());
        co_await boost::asio::async_write(store_, boost::asio::buffer(received, count),
                                          use_awaitable);
        received.erase(0, count);
        left -= count;
      }
      if (fault_ == Fault::withinRequest) co_return reset();
    }
  }

  Task receive(std::string& received) {
    received.resize(kPiece);
    received.resize(co_await client_.async_read_some(boost::asio::buffer(received), use_awaitable));
  }

  Task passAnswers() {
    std::array<char, kPiece> piece{};
    for (;;) {
      auto count = co_await store_.async_read_some(boost::asio::buffer(piece), use_awaitable);
      if (fault_ == Fault::beforeAnswer) co_return reset();
      // Ends in order, since a reset may cost the client what it has not read yet.
      if (fault_ == Fault::withinAnswer) count /= 2;
      co_await boost::asio::async_write(client_, boost::asio::buffer(piece, count), use_awaitable);
      if (fault_ == Fault::withinAnswer) co_return;
    }
  }

  void reset() {
    boost::system::error_code ignored;
    client_.set_option(tcp::socket::linger(true, 0), ignored);
  }

  void close() {
    boost::system::error_code ignored;
    client_.close(ignored);
    store_.close(ignored);
  }

  static constexpr std::size_t kPiece = std::size_t{64} * 1024;

  tcp::socket client_;
  tcp::socket store_;
  std::uint64_t& requests_;
  Fault fault_ = Fault::none;  ///< Of the request under way.
};

Task acceptConnections(tcp::acceptor& acceptor, tcp::endpoint store, std::uint64_t& requests) {
  for (;;) {
    auto client = co_await acceptor.async_accept(use_awaitable);
    auto connection = std::make_shared<Connection>(std::move(client), requests);
    boost::asio::co_spawn(acceptor.get_executor(), connection->run(store),
                          [connection](const std::exception_ptr&) {});
  }
}

/// Argument: the store's port. Prints its own one, and at SIGTERM how many requests it has seen.
const testing::ChildMain kProxy("faulty-proxy", [](const std::vector<std::string>& arguments) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  boost::asio::io_context loop;
  boost::asio::signal_set ending(loop, SIGTERM);
  ending.async_wait([&loop](const boost::system::error_code&, int) { loop.stop(); });

  const auto loopback = boost::asio::ip::address_v4::loopback();
  const auto port = static_cast<std::uint16_t>(std::stoul(arguments.at(0)));
  tcp::acceptor acceptor(loop, {loopback, 0});
  std::uint64_t requests = 0;
  boost::asio::co_spawn(loop, acceptConnections(acceptor, {loopback, port}, requests),
                        boost::asio::detached);
  std::cout << acceptor.local_endpoint().port() << '\n' << std::flush;
  loop.run();
  std::cout << requests << " requests, " << requests / kRequestsPerFault << " of them lost\n";
  return 0;
});

}  // namespace
}  // namespace orvane::soak
