#pragma once

#include <orvane/Async.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <future>
#include <utility>

namespace orvane::testing {

/// The outcome of an asynchronous operation. Blocks.
template <class T>
Result<T> run(Async<T> operation) {
  boost::asio::io_context host;
  auto result = boost::asio::co_spawn(host, std::move(operation), boost::asio::use_future);
  host.run();
  return result.get();
}

}  // namespace orvane::testing
