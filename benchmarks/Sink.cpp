#include "Sink.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvane::benchmarks {
namespace {

constexpr std::string_view kAnswer =
    "HTTP/1.1 200 OK\r\nETag: \"tag\"\r\nContent-Length: 23\r\n\r\n<UploadId>id</UploadId>";

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::size_t contentLength(std::string_view head) {
  constexpr std::string_view kName = "Content-Length: ";
  const auto found = head.find(kName);
  if (found == std::string_view::npos) return 0;
  std::size_t length = 0;
  const auto* start = head.data() + found + kName.size();
  std::from_chars(start, head.data() + head.size(), length);
  return length;
}

/// Answers one request after the other until the client goes.
void serve(int connection) {
  std::vector<char> buffer(1 << 20);
  std::string head;
  for (;;) {
    const auto headEnd = head.find("\r\n\r\n");
    if (headEnd == std::string::npos) {
      const ssize_t count = recv(connection, buffer.data(), buffer.size(), 0);
      if (count <= 0) break;
      head.append(buffer.data(), static_cast<std::size_t>(count));
      continue;
    }
    const auto here = head.size() - (headEnd + 4);
    for (auto left = contentLength(head) - std::min(here, contentLength(head)); left > 0;) {
      const ssize_t count =
          recv(connection, buffer.data(), std::min(left, buffer.size()), MSG_TRUNC);
      if (count <= 0) return;
      left -= static_cast<std::size_t>(count);
    }
    head.clear();
    if (send(connection, kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL) < 0) break;
  }
  close(connection);
}

}  // namespace

Sink::Sink() {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  auto address = loopback(0);
  socklen_t size = sizeof address;
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener, 64) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("sink");
  }
  port_ = ntohs(address.sin_port);
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) std::thread(serve, accept(listener, nullptr, nullptr)).detach();
  }
  close(listener);
}

Sink::~Sink() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

int connectTo(std::uint16_t port) {
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto address = loopback(port);
  if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("connect");
  }
  const int on = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return connection;
}

}  // namespace orvane::benchmarks
