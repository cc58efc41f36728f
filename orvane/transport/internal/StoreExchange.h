#pragma once

#include <orvane/Async.h>
#include <orvane/platform/http/HttpSession.h>
#include <orvane/transport/BucketRequests.h>
#include <orvane/transport/RetryPolicy.h>
#include <orvane/transport/S3Config.h>
#include <orvane/transport/internal/MultipartProtocol.h>

#include <boost/asio/awaitable.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace orvane::transport {

/// Whether the error is that of a response with this status.
[[nodiscard]] bool hasStatus(const Error& error, int status);

/// Whether an operation that has failed so is over: it was not cancelled, and trying again does not
/// help.
[[nodiscard]] bool isForGood(const Error& error);

/// A request as `StoreExchange` takes it.
[[nodiscard]] std::optional<RequestWithBody> withoutBody(std::optional<HttpRequest> request);

/// The code cancelled if the calling coroutine was cancelled.
[[nodiscard]] Async<void> failIfCancelled();

/// Exchanges requests and responses with the store for operations that try again. Any thread may
/// use it, in coroutines that were told not to throw when they are cancelled.
class StoreExchange {
 public:
  using Delay = std::chrono::duration<double>;
  /// Is told why an attempt is to be made anew, and when; says whether it is.
  using MayRetry = std::function<bool(const Error& error, Delay delay)>;
  /// Makes a request, or nothing where there is no URL for it. Called on the background pool.
  using Sign = std::function<std::optional<RequestWithBody>()>;

  StoreExchange(S3Config config, Delay firstRetryDelay)
      : config_(std::move(config)), signer_(config_), firstRetryDelay_(firstRetryDelay) {}

  [[nodiscard]] const S3Config& config() const noexcept { return config_; }
  [[nodiscard]] const RequestSigner& signer() const noexcept { return signer_; }

  /// The response to one request: a success (below 300), or the error that it means. Sent a second
  /// time only when the signer's clock had to be set. A cancelled coroutine sends nothing.
  [[nodiscard]] Async<HttpResponse> send(Sign sign);

  /// The same, made anew as `retried` has it.
  [[nodiscard]] Async<HttpResponse> sendRetried(Sign sign, const MayRetry& mayRetry);

  /// The outcome of `attempt`, made anew as long as it fails with what may pass and there are
  /// retries left. The attempt is told whether it is one of those.
  /// `mayRetry` may be empty and must outlive the coroutine.
  template <class T>
  [[nodiscard]] Async<T> retried(std::function<Async<T>(bool again)> attempt,
                                 const MayRetry& mayRetry) {
    for (std::int64_t retries = 0;; ++retries) {
      auto attempting = attempt(retries > 0);
      auto outcome = co_await std::move(attempting);
      if (outcome || retries == RetryPolicy::maxSessionRetries ||
          !RetryPolicy::isRetryable(outcome.error())) {
        co_return outcome;
      }
      const auto delay = delayBefore(retries);
      if (mayRetry && !mayRetry(outcome.error(), delay)) co_return outcome;
      auto pausing = pause(delay);
      co_await std::move(pausing);
    }
  }

 private:
  /// How long a request waits that has been sent again so many times.
  [[nodiscard]] Delay delayBefore(std::int64_t retries) const;
  /// Less long when the coroutine is cancelled.
  [[nodiscard]] static boost::asio::awaitable<void> pause(Delay delay);
  using TimePoint = RequestSigner::TimePoint;

  /// Whether the request was refused for the time that it was signed with; another one will not be.
  [[nodiscard]] bool isClockCorrected(const HttpResponse& response, TimePoint signedAt);

  S3Config config_;
  RequestSigner signer_;
  Delay firstRetryDelay_;
  platform::HttpSession session_{1};
};

}  // namespace orvane::transport
