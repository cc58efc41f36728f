#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace orvane::testing {

/// A door that a test opens once, before or after somebody waits at it. Copies share the door.
class Gate {
 public:
  void open() const { *isOpen_ = true; }
  [[nodiscard]] bool isOpen() const { return *isOpen_; }

 private:
  std::shared_ptr<std::atomic<bool>> isOpen_ = std::make_shared<std::atomic<bool>>(false);
};

/// What a `FaultServer` does with one request once its head is there: it reads the body, sends
/// `answer` byte for byte as it stands, and ends as `end` says. As it comes, it reads everything,
/// sends everything and keeps the connection.
///
///     Reaction{.answer = answerText(200, "hello"), .sendAtMost = 10, .end = Reaction::End::reset}
struct Reaction {
  static constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

  enum class End {
    keepOpen,  ///< Reads what is left of the body, then the next request.
    close,     ///< Reads what is left of the body, then closes in order.
    reset,     ///< The client receives what was sent, then a reset.
    stall,     ///< Neither reads nor sends until the server goes.
    repeat,    ///< Sends the answer again and again until the client goes.
  };
  /// `piece` bytes at a time with `pause` between them.
  struct Pace {
    std::size_t piece = kAll;
    std::chrono::milliseconds pause{0};
  };

  std::string answer = {};
  std::size_t readAtMost = kAll;  ///< Bytes of the body that are read before the answer.
  Pace readPace = {};
  std::optional<Gate> gate = {};  ///< Where the answer waits.
  std::size_t sendAtMost = kAll;  ///< Bytes of `answer` that are sent.
  Pace sendPace = {};
  End end = End::keepOpen;
};

using HeaderList = std::vector<std::pair<std::string, std::string>>;

/// The bytes of an answer: status line, `headers`, a matching Content-Length (none with 204 and
/// 304), `body`. For a wrong Content-Length or none, write the bytes by hand.
[[nodiscard]] std::string answerText(int status, std::string_view body = {},
                                     const HeaderList& headers = {});

/// Sends `answerText`.
[[nodiscard]] Reaction answer(int status, std::string_view body = {},
                              const HeaderList& headers = {});
/// Resets the connection when so many bytes of the body are read; nothing is sent.
[[nodiscard]] Reaction resetAfter(std::size_t bodyBytes);
/// Stalls when so many bytes of the body are read; nothing is sent.
[[nodiscard]] Reaction stallAfter(std::size_t bodyBytes);

/// A request exactly as it was received.
struct RecordedRequest {
  std::string head;  ///< Request line and header lines with the empty line that ends them.
  std::string body;  ///< What was read of the body before the answer.

  [[nodiscard]] std::string method() const;
  /// Path and query as sent.
  [[nodiscard]] std::string target() const;
  /// The value of the first field of that name (letter case aside), without the blanks around it.
  [[nodiscard]] std::optional<std::string> header(const std::string& name) const;
};

/// An HTTP/1.1 server on 127.0.0.1 that misbehaves as the test says.
///
/// Each request takes the next `Reaction` of the queue; when the queue is empty, the one that the
/// server's function gives. Requests with a body must carry Content-Length.
///
/// Any thread may call. The function runs on the server's only thread, when the head has arrived
/// and the body has not been read; it must not wait. Destruction ends every connection and never
/// waits for a client.
///
///     FaultServer server;                                  // 200 for everything, except:
///     server.queue(answer(503));
///     server.queue(resetAfter(1000));
class FaultServer {
 public:
  using Function = std::function<Reaction(const RecordedRequest&)>;

  explicit FaultServer(Function otherwise = [](const RecordedRequest&) { return answer(200); });
  ~FaultServer();
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return acceptor_.local_endpoint().port(); }
  /// "http://127.0.0.1:" and the port.
  [[nodiscard]] std::string url() const;

  void queue(Reaction reaction);

  /// The requests whose heads have arrived so far, in order of arrival.
  [[nodiscard]] std::vector<RecordedRequest> requests() const;
  /// Waits until at least so many have arrived. Throws, which fails the test, after half a minute.
  std::vector<RecordedRequest> waitForRequests(std::size_t count) const;
  [[nodiscard]] std::size_t connectionCount() const;
  /// Closes every connection in order, without reading on; the ends have left when it returns.
  void closeConnections();

 private:
  using Socket = boost::asio::ip::tcp::socket;
  template <class T>
  using Awaitable = boost::asio::awaitable<T>;

  Awaitable<void> acceptConnections();
  Awaitable<void> serve(std::shared_ptr<Socket> socket);
  /// Whether the connection goes on.
  Awaitable<bool> react(Socket& socket, std::string& received, std::size_t index,
                        std::size_t unread, const Reaction& reaction);
  /// Records the request: its place in `requests_`, and what to do with it.
  std::pair<std::size_t, Reaction> accept(const RecordedRequest& request);

  const Function otherwise_;
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::deque<Reaction> queue_;
  std::vector<RecordedRequest> requests_;
  std::vector<std::weak_ptr<Socket>> connections_;
  boost::asio::io_context context_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::jthread thread_;
};

}  // namespace orvane::testing
