#pragma once

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <memory>
#include <utility>

namespace orvane::transport {

/// Runs `operation->run()`, a coroutine, on a strand of its own, so that the operation's members
/// need no lock whatever executor the caller has. The operation lives until it has ended.
template <class Operation>
auto runOnStrand(std::shared_ptr<Operation> operation) -> decltype(operation->run()) {
  const auto strand = boost::asio::make_strand(co_await boost::asio::this_coro::executor);
  auto running = boost::asio::co_spawn(strand, operation->run(), boost::asio::use_awaitable);
  co_return co_await std::move(running);
}

}  // namespace orvane::transport
