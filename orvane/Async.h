#pragma once

#include <orvane/Error.h>

#include <boost/asio/awaitable.hpp>

namespace orvane {

/// An operation that suspends its caller instead of blocking a thread. A host runs it on its own
/// executor, which must outlive the operation, with `boost::asio::co_spawn` and any completion
/// token.
///
/// Apart from Error.h, so that only those who run such operations compile Asio.
template <class T>
using Async = boost::asio::awaitable<Result<T>>;

}  // namespace orvane
