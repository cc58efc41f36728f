#include "support/FaultServer.h"

#include <boost/algorithm/string/find.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>

#include <sys/ioctl.h>

#include <algorithm>
#include <stdexcept>

namespace orvane::testing {
namespace {

namespace asio = boost::asio;
using asio::use_awaitable;
using asio::ip::tcp;
using std::chrono::milliseconds;

constexpr auto kWaitLimit = std::chrono::seconds(30);
// Small, so that a client soon feels it when nobody reads.
constexpr int kReceiveBuffer = 64 * 1024;

asio::awaitable<void> pause(milliseconds time) {
  co_await asio::steady_timer(co_await asio::this_coro::executor, time).async_wait(use_awaitable);
}

/// Has at least so many bytes in `received`.
asio::awaitable<void> fill(tcp::socket& socket, std::string& received, std::size_t count) {
  if (received.size() >= count) co_return;
  co_await asio::async_read(socket, asio::dynamic_buffer(received),
                            asio::transfer_at_least(count - received.size()), use_awaitable);
}

asio::awaitable<void> send(tcp::socket& socket, std::string_view text, Reaction::Pace pace) {
  while (!text.empty()) {
    const auto piece = text.substr(0, pace.piece);
    co_await asio::async_write(socket, asio::buffer(piece), use_awaitable);
    text.remove_prefix(piece.size());
    if (!text.empty()) co_await pause(pace.pause);
  }
}

/// Resets the connection once the client has what was sent.
asio::awaitable<void> reset(tcp::socket& socket) {
  for (int unacknowledged = 1; unacknowledged > 0; co_await pause(milliseconds(1))) {
    if (ioctl(socket.native_handle(), TIOCOUTQ, &unacknowledged) != 0) break;
  }
  socket.set_option(tcp::socket::linger(true, 0));
  socket.close();  // A destructor would undo the option.
}

}  // namespace

std::string answerText(int status, std::string_view body, const HeaderList& headers) {
  std::string text = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\n";
  for (const auto& [name, value] : headers) text += name + ": " + value + "\r\n";
  if (status != 204 && status != 304) {
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return text.append("\r\n").append(body);
}

Reaction answer(int status, std::string_view body, const HeaderList& headers) {
  return {.answer = answerText(status, body, headers)};
}

Reaction resetAfter(std::size_t bodyBytes) {
  return {.readAtMost = bodyBytes, .end = Reaction::End::reset};
}

Reaction stallAfter(std::size_t bodyBytes) {
  return {.readAtMost = bodyBytes, .end = Reaction::End::stall};
}

std::string RecordedRequest::method() const { return head.substr(0, head.find(' ')); }

std::string RecordedRequest::target() const {
  const std::size_t begin = head.find(' ') + 1;
  return head.substr(begin, head.find(' ', begin) - begin);
}

std::optional<std::string> RecordedRequest::header(const std::string& name) const {
  const auto field = boost::algorithm::ifind_first(head, "\r\n" + name + ":");
  if (!field) return std::nullopt;
  return boost::algorithm::trim_copy(
      std::string(field.end(), std::find(field.end(), head.end(), '\r')));
}

FaultServer::FaultServer(Function otherwise)
    : otherwise_(std::move(otherwise)), acceptor_(context_, tcp::v4()) {
  // Accepted connections inherit it.
  acceptor_.set_option(tcp::socket::receive_buffer_size(kReceiveBuffer));
  acceptor_.bind({asio::ip::address_v4::loopback(), 0});
  acceptor_.listen();
  asio::co_spawn(context_, acceptConnections(), asio::detached);
  thread_ = std::jthread([this] { context_.run(); });
}

FaultServer::~FaultServer() { context_.stop(); }

std::string FaultServer::url() const { return "http://127.0.0.1:" + std::to_string(port()); }

asio::awaitable<void> FaultServer::acceptConnections() {
  for (;;) {
    const auto socket = std::make_shared<Socket>(co_await acceptor_.async_accept(use_awaitable));
    socket->set_option(tcp::no_delay(true));
    const std::lock_guard lock(mutex_);
    connections_.push_back(socket);
    asio::co_spawn(context_, serve(socket), asio::detached);
  }
}

/// Ends with an exception, and the connection with it, when the client goes.
asio::awaitable<void> FaultServer::serve(std::shared_ptr<Socket> socket) {
  std::string received;
  for (bool goesOn = true; goesOn;) {
    const auto size = co_await asio::async_read_until(*socket, asio::dynamic_buffer(received),
                                                      "\r\n\r\n", use_awaitable);
    const RecordedRequest request{.head = received.substr(0, size), .body = {}};
    received.erase(0, size);
    const auto [index, reaction] = accept(request);
    const auto bodySize = std::stoul(request.header("Content-Length").value_or("0"));
    goesOn = co_await react(*socket, received, index, bodySize, reaction);
  }
}

asio::awaitable<bool> FaultServer::react(Socket& socket, std::string& received, std::size_t index,
                                         std::size_t unread, const Reaction& reaction) {
  for (auto left = std::min(unread, reaction.readAtMost); left > 0;) {
    const auto piece = std::min(left, reaction.readPace.piece);
    co_await fill(socket, received, piece);
    {
      const std::lock_guard lock(mutex_);
      requests_[index].body.append(received, 0, piece);
    }
    received.erase(0, piece);
    unread -= piece;
    left -= piece;
    if (left > 0) co_await pause(reaction.readPace.pause);
  }
  while (reaction.gate && !reaction.gate->isOpen()) co_await pause(milliseconds(1));
  const auto sent = std::string_view(reaction.answer).substr(0, reaction.sendAtMost);
  do {
    co_await send(socket, sent, reaction.sendPace);
  } while (reaction.end == Reaction::End::repeat);
  while (reaction.end == Reaction::End::stall) co_await pause(std::chrono::hours(1));
  if (reaction.end == Reaction::End::reset) {
    co_await reset(socket);
    co_return false;
  }
  // Closing with unread bytes would be a reset, which may cost the client the answer.
  if (reaction.end == Reaction::End::close) socket.shutdown(Socket::shutdown_send);
  co_await fill(socket, received, unread);
  received.erase(0, unread);
  co_return reaction.end == Reaction::End::keepOpen;
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
  for (const auto& connection : connections_) {
    if (const auto socket = connection.lock()) shutdown(socket->native_handle(), SHUT_RDWR);
  }
}

}  // namespace orvane::testing
