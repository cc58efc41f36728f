#include <orvane/transport/internal/InParallel.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/deferred.hpp>
#include <boost/asio/experimental/parallel_group.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <exception>
#include <utility>
#include <vector>

namespace orvane::transport {
namespace {

namespace asio = boost::asio;

/// When one of several coroutines fails, the others are of no use.
struct CancelAfterFailure {
  asio::cancellation_type operator()(const std::exception_ptr& exception,
                                     const Result<void>& result) const noexcept {
    return exception || !result ? asio::cancellation_type::terminal : asio::cancellation_type::none;
  }
};

}  // namespace

Async<void> inParallel(std::size_t count, std::function<Async<void>()> makeWorker) {
  const auto executor = co_await asio::this_coro::executor;
  using Worker = decltype(asio::co_spawn(executor, makeWorker(), asio::deferred));
  std::vector<Worker> workers;
  workers.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    workers.push_back(asio::co_spawn(executor, makeWorker(), asio::deferred));
  }
  if (workers.empty()) co_return Result<void>{};
  auto group = asio::experimental::make_parallel_group(std::move(workers));
  auto running = group.async_wait(CancelAfterFailure{}, asio::use_awaitable);
  const auto outcomes = co_await std::move(running);
  for (const auto& exception : std::get<1>(outcomes)) {
    if (exception) std::rethrow_exception(exception);
  }
  // The first to end with an error is the cause; the others were cancelled for it.
  for (const auto index : std::get<0>(outcomes)) {
    const auto& result = std::get<2>(outcomes)[index];
    if (!result) co_return result;
  }
  co_return Result<void>{};
}

}  // namespace orvane::transport
