#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>
#include <orvane/platform/http/HttpRequest.h>
#include <orvane/platform/http/HttpResponse.h>
#include <orvane/platform/http/internal/ConnectionCache.h>
#include <orvane/platform/http/internal/RateGate.h>
#include <orvane/platform/http/internal/ResponseHead.h>
#include <orvane/platform/http/internal/WireConnection.h>

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::platform {

/// One request on its way and the answer as far as it has come. Everything but `report` is called
/// under the lock of the `TransferLoop`.
class Transfer {
 public:
  using Clock = std::chrono::steady_clock;
  /// Runs without the lock, on whichever thread found the end; must return quickly.
  using Finished = std::move_only_function<void(Result<HttpResponse>)>;
  /// Runs under the lock; must return quickly and not start transfers.
  using Sent = std::move_only_function<void(std::int64_t sent, std::int64_t total)>;

  Transfer(std::shared_ptr<ConnectionCache> connections, HttpRequest request, SharedBytes body,
           Sent sent, Finished finished);

  /// Why the request must not be sent at all, if so.
  [[nodiscard]] std::optional<Error> refusal() const;

  /// Sets `easy` up for this transfer, which must outlive its use. The bodies' bytes pass the
  /// gates, which must outlive it too, until `detach`.
  void attach(CURL* easy, RateGates& gates);
  void detach();
  [[nodiscard]] CURL* easy() const noexcept { return easy_; }

  /// Whether the request may be sent a second time, on a fresh connection: not a POST, only once,
  /// and only when its kept connection was closed before the server could read any of it.
  [[nodiscard]] bool maySendAgain(CURLcode code) const;
  void prepareSecondSend();

  /// The outcome, once the client library says that the transfer has ended with `code`.
  [[nodiscard]] Result<HttpResponse> result(CURLcode code);

  /// Lets go of the body and reports; by then nothing reads the body any more, so its owner may
  /// use the memory again. Only the first call has an effect.
  void report(Result<HttpResponse> result);

  /// Has the transfer reported, as cancelled, when the process exits before it has ended: somebody
  /// waits for it. Others are left unreported, since whoever takes the report may be gone.
  void reportAtExit() noexcept { reportsAtExit_ = true; }
  [[nodiscard]] bool reportsAtExit() const noexcept { return reportsAtExit_; }

  /// How often `hasStalled` wants to be asked.
  [[nodiscard]] std::chrono::milliseconds checkInterval() const;

  /// Whether the time limit has passed without a byte moving in either direction.
  [[nodiscard]] bool hasStalled(Clock::time_point now);

  [[nodiscard]] bool isConnecting() const noexcept { return connection_ == nullptr; }

 private:
  struct ListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };

  void setHeaders();
  void setBody();
  void addHeader(const std::string& line);
  [[nodiscard]] int status() const;
  /// Takes a piece of the body; false when the transfer is to end there.
  [[nodiscard]] bool receive(std::string_view piece);
  [[nodiscard]] HttpResponse takeResponse();
  /// Has the library offer again what does not wait at a gate.
  void resume();
  [[nodiscard]] std::uint64_t bytesMoved() const;

  static std::size_t onRead(char* buffer, std::size_t size, std::size_t count, void* self) noexcept;
  static int onSeek(void* self, curl_off_t offset, int origin) noexcept;
  static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* self) noexcept;
  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* self) noexcept;
  static curl_socket_t onOpen(void* self, curlsocktype purpose, curl_sockaddr* address) noexcept;
  static int onConnected(void* self, char* remoteAddress, char* localAddress, int remotePort,
                         int localPort) noexcept;
  static int onProgress(void* self, curl_off_t toReceive, curl_off_t received, curl_off_t toSend,
                        curl_off_t sent) noexcept;

  std::shared_ptr<ConnectionCache> connections_;
  HttpRequest request_;
  SharedBytes body_;
  Sent sent_;
  Finished finished_;

  CURL* easy_ = nullptr;
  std::unique_ptr<curl_slist, ListDeleter> headers_;
  std::string answer_;
  std::size_t bodyBytes_ = 0;    ///< Received so far, those that were dropped included.
  bool answerTooLong_ = false;   ///< Longer than allowed, although it is needed whole.
  bool answerIsEnough_ = false;  ///< Ended early: longer than allowed, and not needed whole.
  bool reportsAtExit_ = false;
  ResponseHead head_;
  std::size_t bytesRead_ = 0;  ///< Of the body, by the library.
  RateGates* gates_ = nullptr;
  RateGate::Passenger sending_ = {.resume = [this] { resume(); }};
  RateGate::Passenger receiving_ = {.resume = [this] { resume(); }};
  bool readsFirst_ = false;  ///< The library is to read before it sends more.
  std::int64_t bytesSent_ = 0;
  std::int64_t bytesReceived_ = 0;

  int openFailure_ = 0;  ///< The errno value with which the last attempt to open a socket failed.
  std::vector<curl_socket_t> opened_;           ///< For this transfer, the failed ones too.
  std::shared_ptr<WireConnection> connection_;  ///< None before it is connected.
  WireConnection::Bytes movedBefore_;           ///< By earlier requests.
  bool libraryBeganAnew_ = false;
  bool sentTwice_ = false;

  std::uint64_t bytesAtLastMove_ = 0;
  Clock::time_point lastMove_;
};

}  // namespace orvane::platform
