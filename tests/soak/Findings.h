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
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace orvane::soak {

/// Lines of text that two sides should agree on.
using Lines = std::multiset<std::string>;

/// What a run has met. Any thread may call.
class Findings {
 public:
  void count(const std::string& what, std::size_t times = 1);
  /// Counts a failure, and is not content unless it is what a lost connection leads to.
  void countFailure(const std::string& operation, const Error& error);
  /// Unless `right`, the soak has failed; `problem` says why.
  void expect(bool right, const std::string& problem);
  /// For each line that only one side has.
  void expectSame(const Lines& expected, const Lines& found);
  /// Must have been counted.
  void expectSome(const std::string& what);

  [[nodiscard]] bool good() const;
  void print(std::ostream& output) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::size_t> counts_;
  std::vector<std::string> problems_;
};

/// Lets others have the machine between two turns; ends early when a stop is requested.
void pause(const std::stop_token& stop);

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
