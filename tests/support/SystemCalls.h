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

using Lookup = std::function<std::vector<std::string>(std::string_view name)>;

/// Runs in place of every later lookup of a name, on the thread that looks it up. Of a name for
/// which `lookup` has no addresses the system is asked.
void setLookup(Lookup lookup);

/// What has been synced and renamed since the last call, in order: "sync NAME", "rename FROM TO". A
/// file without content is synced as "sync NAME empty".
std::vector<std::string> takeFileCalls();

}  // namespace orvane::testing
