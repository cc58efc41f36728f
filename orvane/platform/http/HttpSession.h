#pragma once

#include <orvane/Async.h>
#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/http/HttpRequest.h>
#include <orvane/platform/http/HttpResponse.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace orvane::platform {

/// Sends HTTP requests.
///
/// The request goes out as it is given: path and query byte for byte, the `Host` field that the
/// headers hold (the connection goes to the URL's host and port all the same), nothing added but
/// `Content-Length`. HTTP/1.1 over http and https; redirects are responses like any other;
/// certificates are verified, by the system's authorities and those that `HostOptions` names;
/// proxies are those of the environment (`https_proxy`, `no_proxy`...). What a proxy answers to a
/// request over http is a response like the server's own, 407 too; over https it is an error.
///
/// One I/O thread per process drives the transfers of all sessions; callbacks never run on it. A
/// request takes its first steps, without waiting for the network, on the thread that starts it.
/// Each session reuses its own connections and has its own callback queue.
///
/// Errors: the domain `Error::kUrlLoading` with a code of `UrlErrorCode`. Any status is a success
/// here. A method or header field that holds CR, LF or NUL fails with badURL, and so
/// do `Transfer-Encoding` and credentials in the URL; nothing is sent.
///
/// A request is sent once. A second time, on a fresh connection, it is sent only when its kept
/// connection turns out to have been closed before the server could read any of it; a POST not even
/// then. Otherwise a connection that ends without a response is the error networkConnectionLost.
///
/// Where descriptors, memory for sockets or the session's threads have run out, requests fail with
/// a POSIX error, and may succeed later. A name lookup that cannot start its thread is not told
/// from one that finds no host: cannotFindHost.
///
/// Any thread may use a session. Destroying it does not disturb transfers under way. Processes
/// share nothing. A child that was forked after the first use must start no request; it may destroy
/// sessions, exec, and exit as it likes.
class HttpSession {
 public:
  using Completion = std::move_only_function<void(Result<HttpResponse>)>;
  /// Bytes of the body sent so far, and bytes of the whole body.
  using Progress = std::move_only_function<void(std::int64_t sent, std::int64_t total)>;

  /// At most `maxConcurrentCallbacks` (1 or more) of this session's callbacks run at the same time.
  explicit HttpSession(std::size_t maxConcurrentCallbacks);

  /// The process-wide session; its callbacks run one at a time.
  [[nodiscard]] static HttpSession& shared();

  /// Starts a transfer and returns at once. Callbacks run on the session's queue: `progress` (may
  /// be empty) after parts of the body have left, the latest figure only when the queue is busy;
  /// then `completion`, exactly once, unless the process exits before. Neither may throw, and
  /// neither may wait for another callback: the threads they run on are shared by all sessions.
  /// Where no thread can be started for them, `completion` is called before this returns.
  void start(HttpRequest request, SharedBytes body, Progress progress, Completion completion);

  /// Sends the request and blocks until the response is complete. Needs no thread but the I/O
  /// thread, so it may be called from anywhere, callbacks included.
  [[nodiscard]] Result<HttpResponse> sendAndWait(HttpRequest request, SharedBytes body = {});

  /// Sends the request and suspends the caller, who is resumed on its own executor. Cancelling the
  /// coroutine ends the transfer with the code cancelled. The session may be destroyed meanwhile;
  /// the executor must outlive the operation.
  [[nodiscard]] Async<HttpResponse> send(HttpRequest request, SharedBytes body = {});

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace orvane::platform
