#pragma once

#include <orvane/Async.h>
#include <orvane/transport/RetryPolicy.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <ostream>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace orvane::soak {

/// What was acknowledged and must be there in the end: a name for each thing, and its content.
using Ledger = std::map<std::string, std::string>;

/// What a run has met. Any thread may call.
class Findings {
 public:
  void count(const std::string& what, std::size_t times = 1);
  /// Counts a failure, and is not content unless it is what a lost connection leads to.
  void countFailure(const std::string& operation, const Error& error);
  /// Unless `right`, the soak has failed; `problem` says why.
  void expect(bool right, const std::string& problem);
  /// For each entry that only one side has.
  void expectSame(const Ledger& expected, const Ledger& found);
  /// Must have been counted.
  void expectSome(const std::string& what);

  /// Prints everything. Whether there was no problem.
  [[nodiscard]] bool report(std::ostream& output) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::size_t> counts_;
  std::vector<std::string> problems_;
};

/// Lets others have the machine between two turns.
inline void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }

/// Runs `operation(retries)` again as `RetryPolicy` says, but with milliseconds for its seconds, so
/// that the time is spent on work.
template <class Operation>
auto retried(Findings& findings, const std::string& name, Operation operation) {
  double delay = RetryPolicy::baseDelay;
  for (std::int64_t retries = 0;; ++retries) {
    auto result = operation(retries);
    findings.count(name);
    if (result) return result;
    findings.countFailure(name, result.error());
    if (!RetryPolicy::isRetryable(result.error()) || retries == RetryPolicy::maxSessionRetries) {
      findings.count(name + ": given up");
      return result;
    }
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(delay));
    delay = std::min(2 * delay, RetryPolicy::maxDelay);
  }
}

}  // namespace orvane::soak
