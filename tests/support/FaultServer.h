#pragma once

#include <orvane/platform/files/FileDescriptor.h>

#include "support/Reaction.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace orvane::testing {

/// A request exactly as it was received.
struct RecordedRequest {
  std::string head;  ///< Request line and header lines with the empty line that ends them.
  std::string body;  ///< What was read of the body before the answer.

  [[nodiscard]] std::string method() const;
  /// Path and query as sent.
  [[nodiscard]] std::string target() const;
  /// The value of the first field of that name (letter case aside), without the blanks around it.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// An HTTP/1.1 server on 127.0.0.1 that misbehaves as the test says.
///
/// Each request takes the next `Reaction` of the queue; when the queue is empty, the one that the
/// server's function gives. Requests with a body must carry Content-Length.
///
/// Any thread may call. The function runs on threads of the server, several at a time, when the
/// head has arrived and the body has not been read. Destruction ends every connection and never
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

  [[nodiscard]] std::uint16_t port() const { return port_; }
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
  class Connection;

  void acceptConnections();
  /// Records the request: its place in `requests_`, and what to do with it.
  std::pair<std::size_t, Reaction> accept(const RecordedRequest& request);
  void appendBody(std::size_t index, std::string_view bytes);

  const Function otherwise_;
  platform::FileDescriptor listener_;
  std::uint16_t port_ = 0;

  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::deque<Reaction> queue_;
  std::vector<RecordedRequest> requests_;
  std::vector<std::unique_ptr<Connection>> connections_;
  std::thread acceptor_;
};

}  // namespace orvane::testing
