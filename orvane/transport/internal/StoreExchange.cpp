#include <orvane/transport/internal/StoreExchange.h>

#include <orvane/platform/concurrency/BackgroundTask.h>
#include <orvane/platform/http/HttpDate.h>
#include <orvane/platform/http/UrlError.h>
#include <orvane/transport/S3Error.h>
#include <orvane/transport/XMLTagParser.h>

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

namespace orvane::transport {
namespace {

namespace asio = boost::asio;
namespace this_coro = boost::asio::this_coro;

constexpr int kForbidden = 403;
/// Stores refuse requests whose time is a quarter of an hour off; clocks that are kept in time
/// differ by seconds.
constexpr std::chrono::minutes kClockTolerance(5);

/// The region that a refusal names, if it is one for a bucket in another region.
std::optional<std::string> regionNamedIn(const HttpResponse& response) {
  constexpr std::size_t kMaxNameLength = 64;
  if (response.status != 301 && response.status != 307 && response.status != 400) {
    return std::nullopt;
  }
  std::string region(response.headers.get("x-amz-bucket-region").value_or(""));
  if (region.empty()) {
    region = XMLTagParser::extractTag("Region", bytesOf(response.body)).value_or("");
  }
  // The name ends up in texts that people read.
  const bool plausible =
      !region.empty() && region.size() <= kMaxNameLength &&
      region.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == std::string::npos;
  return plausible ? std::optional(std::move(region)) : std::nullopt;
}

Result<HttpResponse> outcomeOf(Result<HttpResponse> response, const S3Config& config) {
  if (response) {
    const auto region = regionNamedIn(*response);
    if (region && *region != config.region) {
      return std::unexpected(S3Error::serverError("The bucket is in the region " + *region));
    }
  }
  return checkedAnswer(std::move(response));
}

}  // namespace

bool hasStatus(const Error& error, int status) {
  const auto* const failure = error.as<S3Error>();
  return failure != nullptr && failure->statusCode() == status;
}

bool isForGood(const Error& error) {
  const bool cancelled = error.domain() == Error::kUrlLoading &&
                         error.code() == static_cast<int>(platform::UrlErrorCode::cancelled);
  return !cancelled && !RetryPolicy::isRetryable(error);
}

std::optional<RequestWithBody> withoutBody(std::optional<HttpRequest> request) {
  if (!request) return std::nullopt;
  return RequestWithBody{.request = std::move(*request), .body = {}};
}

Async<void> failIfCancelled() {
  const auto state = co_await this_coro::cancellation_state;
  if (state.cancelled() != asio::cancellation_type::none) {
    co_return std::unexpected(platform::urlError(platform::UrlErrorCode::cancelled));
  }
  co_return Result<void>{};
}

Async<HttpResponse> StoreExchange::send(Sign sign) {
  for (bool again = false;; again = true) {
    auto checking = failIfCancelled();
    if (auto going = co_await std::move(checking); !going) {
      co_return std::unexpected(std::move(going.error()));
    }
    const auto signedAt = signer_.now();
    auto signing = platform::backgroundTask([&sign]() -> Result<RequestWithBody> {
      auto request = sign();
      if (!request) return std::unexpected(S3Error::invalidURL());
      return std::move(*request);
    });
    auto request = co_await std::move(signing);
    if (!request) co_return std::unexpected(std::move(request.error()));
    auto sending = session_.send(std::move(request->request), std::move(request->body));
    auto response = co_await std::move(sending);
    if (again || !response || !isClockCorrected(*response, signedAt)) {
      co_return outcomeOf(std::move(response), config_);
    }
  }
}

Async<HttpResponse> StoreExchange::sendRetried(Sign sign, const MayRetry& mayRetry) {
  auto sending =
      retried<HttpResponse>([this, &sign](bool /*again*/) { return send(sign); }, mayRetry);
  co_return co_await std::move(sending);
}

bool StoreExchange::isClockCorrected(const HttpResponse& response, TimePoint signedAt) {
  if (response.status != kForbidden) return false;
  const auto date = platform::httpDate(std::string(response.headers.get("Date").value_or("")));
  if (!date || std::chrono::abs(*date - signedAt) < kClockTolerance) return false;
  // Of the requests under way, the first that is refused has set the clock for all of them.
  if (std::chrono::abs(*date - signer_.now()) >= kClockTolerance) signer_.setNow(*date);
  return true;
}

StoreExchange::Delay StoreExchange::delayBefore(std::int64_t retries) const {
  static thread_local std::minstd_rand random(std::random_device{}());
  const Delay longest(RetryPolicy::maxDelay);
  const double chance = std::uniform_real_distribution(1.0, 1.5)(random);
  const Delay delay = firstRetryDelay_ * std::ldexp(chance, static_cast<int>(retries));
  return std::min(delay, longest);
}

asio::awaitable<void> StoreExchange::pause(Delay delay) {
  asio::steady_timer timer(co_await this_coro::executor);
  timer.expires_after(std::chrono::duration_cast<asio::steady_timer::duration>(delay));
  boost::system::error_code cancelled;
  co_await timer.async_wait(asio::redirect_error(asio::use_awaitable, cancelled));
}

}  // namespace orvane::transport
