#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::testing {

// Stand between the client library and the system, for what a test cannot arrange from outside: a
// moment between two calls, a name in the machine's directory. They change the test's own process.

/// Runs before every later `send` of the process with the bytes to be sent, on the sending thread.
void beforeSend(std::function<void(std::string_view bytes)> hook);

/// Runs before every later look-up of a name, on the thread that makes it.
void beforeLookup(std::function<void()> hook);

/// From now on the process finds these addresses under `name`, in this order.
void setAddresses(const std::string& name, const std::vector<std::string>& addresses);

}  // namespace orvane::testing
