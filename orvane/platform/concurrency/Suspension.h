#pragma once

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/execution/outstanding_work.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/prefer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <utility>

namespace orvane::platform {

/// Suspends the calling coroutine, hands `start` a function that resumes it, and yields the value
/// that this function gets. Any thread may call it, once; the coroutine goes on with its own
/// executor, which must be there until then. `start` also gets the coroutine's cancellation slot;
/// it is called when the result of this is awaited, and kept as long.
template <class Value, class Start>
boost::asio::awaitable<Value> suspended(Start start) {
  namespace asio = boost::asio;
  auto initiate = [start = std::move(start)](auto handler) mutable {
    auto slot = asio::get_associated_cancellation_slot(handler);
    auto executor = asio::get_associated_executor(handler);
    start(
        [handler = std::move(handler),
         executor = asio::prefer(executor, asio::execution::outstanding_work_t::tracked)](
            Value value) mutable {
          // The tracked executor stays here until post has returned: the host may destroy its
          // context as soon as that has nothing left to do.
          asio::post(executor, [handler = std::move(handler), value = std::move(value)]() mutable {
            std::move(handler)(std::move(value));
          });
        },
        slot);
  };
  return asio::async_initiate<const asio::use_awaitable_t<>, void(Value)>(std::move(initiate),
                                                                          asio::use_awaitable);
}

}  // namespace orvane::platform
