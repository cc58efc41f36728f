#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::testing {

// Stand between the client library and the system, for what a test cannot arrange from outside: a
// moment between two calls, a name in the machine's directory. They change the test's own process.

/// Runs before and after every later `send` of the process, on the sending thread.
enum class Moment { before, after };
void aroundSend(std::function<void(Moment moment, int socket, std::string_view bytes)> hook);

/// From now on the process finds these addresses under `name`, in this order.
void setAddresses(const std::string& name, const std::vector<std::string>& addresses);

}  // namespace orvane::testing
