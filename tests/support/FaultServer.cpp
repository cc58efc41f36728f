#include "support/FaultServer.h"

#include <orvane/platform/base/Ascii.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace orvane::testing {
namespace {

using std::chrono::milliseconds;

constexpr auto kWaitLimit = std::chrono::seconds(30);
// Small, so that a client soon feels it when nobody reads.
constexpr int kReceiveBuffer = 64 * 1024;

void setOption(int socket, int level, int option, const auto& value) {
  if (setsockopt(socket, level, option, &value, sizeof value) != 0) {
    throw std::runtime_error("setsockopt");
  }
}

void pause(milliseconds time, const std::stop_token& stop) {
  if (time == milliseconds(0)) return;
  std::mutex mutex;
  std::condition_variable_any never;
  std::unique_lock lock(mutex);
  never.wait_for(lock, stop, time, [] { return false; });
}

/// Calls `move(position, count)` for one piece after the other until `total` bytes are done.
template <class Move>
bool inPieces(std::size_t total, const Reaction::Pace& pace, const std::stop_token& stop,
              Move move) {
  for (std::size_t done = 0; done < total;) {
    const std::size_t count = std::min(pace.piece, total - done);
    if (stop.stop_requested() || !move(done, count)) return false;
    done += count;
    if (done < total) pause(pace.pause, stop);
  }
  return !stop.stop_requested();
}

std::size_t contentLength(const RecordedRequest& request) {
  const std::string text = request.header("Content-Length").value_or("0");
  std::size_t length = 0;
  std::from_chars(text.data(), text.data() + text.size(), length);
  return length;
}

}  // namespace

std::string RecordedRequest::method() const { return head.substr(0, head.find(' ')); }

std::string RecordedRequest::target() const {
  const std::size_t begin = head.find(' ') + 1;
  return head.substr(begin, head.find(' ', begin) - begin);
}

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  constexpr std::string_view kBlanks = " \t";
  for (std::size_t line = head.find("\r\n") + 2; line < head.size();) {
    const std::size_t end = head.find("\r\n", line);
    const std::string_view field = std::string_view(head).substr(line, end - line);
    const std::size_t colon = field.find(':');
    if (colon != std::string_view::npos &&
        platform::equalIgnoringCase(field.substr(0, colon), name)) {
      const std::size_t begin = field.find_first_not_of(kBlanks, colon + 1);
      if (begin == std::string_view::npos) return "";
      return std::string(field.substr(begin, field.find_last_not_of(kBlanks) + 1 - begin));
    }
    line = end + 2;
  }
  return std::nullopt;
}

/// One accepted connection and the thread that serves it.
class FaultServer::Connection {
 public:
  Connection(FaultServer& server, platform::FileDescriptor socket)
      : server_(server), socket_(std::move(socket)) {
    thread_ = std::jthread([this](const std::stop_token& stop) { serve(stop); });
  }
  ~Connection() {
    thread_.request_stop();
    end();
    thread_.join();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void end() {
    const std::lock_guard lock(closing_);
    if (socket_) shutdown(socket_.get(), SHUT_RDWR);
  }

 private:
  void serve(const std::stop_token& stop) {
    while (const auto head = receiveHead()) {
      const RecordedRequest request{.head = *head, .body = {}};
      const auto [index, reaction] = server_.accept(request);
      if (!react(index, contentLength(request), reaction, stop)) break;
    }
    close();
  }

  /// Whether the connection goes on.
  bool react(std::size_t index, std::size_t bodySize, const Reaction& reaction,
             const std::stop_token& stop) {
    const auto readBody = [&](std::size_t, std::size_t count) {
      return receive(count, [&](std::string_view bytes) { server_.appendBody(index, bytes); });
    };
    const auto sendAnswer = [&](std::size_t position, std::size_t count) {
      return send(std::string_view(reaction.answer).substr(position, count));
    };
    const std::size_t read = std::min(bodySize, reaction.readAtMost);
    const std::size_t sent = std::min(reaction.answer.size(), reaction.sendAtMost);
    if (!inPieces(read, reaction.readPace, stop, readBody)) return false;
    if (reaction.gate) reaction.gate->wait(stop);
    do {
      if (!inPieces(sent, reaction.sendPace, stop, sendAnswer)) return false;
    } while (reaction.end == Reaction::End::repeat);
    return finish(reaction.end, bodySize - read, stop);
  }

  bool finish(Reaction::End end, std::size_t unread, const std::stop_token& stop) {
    const auto discard = [](std::string_view) {};
    switch (end) {
      case Reaction::End::keepOpen:
        return receive(unread, discard);
      case Reaction::End::close:
        // Closing with unread bytes would be a reset, which may cost the client the answer.
        shutdown(socket_.get(), SHUT_WR);
        receive(unread, discard);
        return false;
      case Reaction::End::reset:
        reset(stop);
        return false;
      case Reaction::End::stall:
        Gate().wait(stop);
        return false;
      case Reaction::End::repeat:
        return false;
    }
    return false;
  }

  void reset(const std::stop_token& stop) {
    // A reset throws away what has not been acknowledged.
    int unacknowledged = 0;
    while (ioctl(socket_.get(), TIOCOUTQ, &unacknowledged) == 0 && unacknowledged > 0 &&
           !stop.stop_requested()) {
      pause(milliseconds(1), stop);
    }
    setOption(socket_.get(), SOL_SOCKET, SO_LINGER, linger{.l_onoff = 1, .l_linger = 0});
  }

  void close() {
    const std::lock_guard lock(closing_);
    socket_.close();
  }

  std::optional<std::string> receiveHead() {
    constexpr std::string_view kEnd = "\r\n\r\n";
    std::size_t end = 0;
    while ((end = received_.find(kEnd)) == std::string::npos) {
      if (!fill()) return std::nullopt;
    }
    std::string head = received_.substr(0, end + kEnd.size());
    received_.erase(0, head.size());
    return head;
  }

  template <class Take>
  bool receive(std::size_t count, Take take) {
    while (count > 0) {
      if (received_.empty() && !fill()) return false;
      const std::size_t size = std::min(count, received_.size());
      take(std::string_view(received_).substr(0, size));
      received_.erase(0, size);
      count -= size;
    }
    return true;
  }

  bool fill() {
    std::array<char, std::size_t{16} * 1024> chunk;
    const ssize_t count = recv(socket_.get(), chunk.data(), chunk.size(), 0);
    if (count > 0) received_.append(chunk.data(), static_cast<std::size_t>(count));
    return count > 0;
  }

  bool send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  FaultServer& server_;
  platform::FileDescriptor socket_;
  std::mutex closing_;
  std::string received_;
  std::jthread thread_;
};

FaultServer::FaultServer(Function otherwise) : otherwise_(std::move(otherwise)) {
  listener_ = platform::FileDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // Accepted connections inherit both.
  setOption(listener_.get(), SOL_SOCKET, SO_RCVBUF, kReceiveBuffer);
  setOption(listener_.get(), IPPROTO_TCP, TCP_NODELAY, 1);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener_.get(), generic, size) != 0 || listen(listener_.get(), SOMAXCONN) != 0 ||
      getsockname(listener_.get(), generic, &size) != 0) {
    throw std::runtime_error("the fault server finds no port");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptConnections(); });
}

FaultServer::~FaultServer() {
  shutdown(listener_.get(), SHUT_RDWR);
  acceptor_.join();
  connections_.clear();
}

std::string FaultServer::url() const { return "http://127.0.0.1:" + std::to_string(port_); }

void FaultServer::acceptConnections() {
  for (;;) {
    platform::FileDescriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket && errno == ECONNABORTED) continue;
    if (!socket) return;
    const std::lock_guard lock(mutex_);
    connections_.push_back(std::make_unique<Connection>(*this, std::move(socket)));
  }
}

void FaultServer::queue(Reaction reaction) {
  const std::lock_guard lock(mutex_);
  queue_.push_back(std::move(reaction));
}

std::pair<std::size_t, Reaction> FaultServer::accept(const RecordedRequest& request) {
  std::unique_lock lock(mutex_);
  const std::size_t index = requests_.size();
  requests_.push_back(request);
  arrived_.notify_all();
  if (queue_.empty()) {
    lock.unlock();
    return {index, otherwise_(request)};
  }
  Reaction next = std::move(queue_.front());
  queue_.pop_front();
  return {index, std::move(next)};
}

void FaultServer::appendBody(std::size_t index, std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  requests_[index].body += bytes;
}

std::vector<RecordedRequest> FaultServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<RecordedRequest> FaultServer::waitForRequests(std::size_t count) const {
  std::unique_lock lock(mutex_);
  if (!arrived_.wait_for(lock, kWaitLimit, [&] { return requests_.size() >= count; })) {
    throw std::runtime_error("only " + std::to_string(requests_.size()) + " of " +
                             std::to_string(count) + " requests arrived");
  }
  return requests_;
}

std::size_t FaultServer::connectionCount() const {
  const std::lock_guard lock(mutex_);
  return connections_.size();
}

void FaultServer::closeConnections() {
  const std::lock_guard lock(mutex_);
  for (const auto& connection : connections_) connection->end();
}

}  // namespace orvane::testing
