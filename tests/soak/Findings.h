#pragma once

#include <orvane/Async.h>
#include <orvane/platform/http/UrlError.h>
#include <orvane/transport/RetryPolicy.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace orvane::soak {

/// What was acknowledged and must be there in the end: a name for each thing, and its content.
using Ledger = std::map<std::string, std::string>;

/// What a run has met. Any thread may call.
class Findings {
 public:
  void count(const std::string& what, std::size_t times = 1) {
    const std::lock_guard lock(mutex_);
    counts_[what] += times;
  }

  /// Counts a failure, and is not content unless it is what a lost connection leads to.
  void countFailure(const std::string& operation, const Error& error) {
    constexpr auto kLost = static_cast<std::int64_t>(platform::UrlErrorCode::networkConnectionLost);
    const auto what = operation + ": " + error.domain() + " " + std::to_string(error.code());
    count(what);
    const bool isLost = error.domain() == Error::kUrlLoading && error.code() == kLost;
    expect(isLost && RetryPolicy::isRetryable(error), what + " (" + error.description() + ")");
  }

  /// Unless `right`, the soak has failed; `problem` says why.
  void expect(bool right, const std::string& problem) {
    constexpr std::size_t kProblemsKept = 20;
    const std::lock_guard lock(mutex_);
    if (!right && problems_.size() < kProblemsKept) problems_.push_back(problem);
  }

  /// Notes each entry that only one side has.
  void expectSame(const Ledger& expected, const Ledger& found) {
    expectNoneMissing("lost: ", expected, found);
    expectNoneMissing("never written: ", found, expected);
  }

  /// Prints everything. Whether there was no problem.
  [[nodiscard]] bool report(std::ostream& output) const {
    const std::lock_guard lock(mutex_);
    for (const auto& [what, times] : counts_) output << "  " << times << "  " << what << '\n';
    for (const auto& problem : problems_) output << "  PROBLEM: " << problem << '\n';
    output << (problems_.empty() ? "Nothing is lost.\n" : "The soak has FAILED.\n");
    return problems_.empty();
  }

  [[nodiscard]] std::size_t countOf(const std::string& what) const {
    const std::lock_guard lock(mutex_);
    return counts_.contains(what) ? counts_.at(what) : 0;
  }

 private:
  void expectNoneMissing(const std::string& problem, const Ledger& from, const Ledger& in) {
    Ledger missing;
    std::ranges::set_difference(from, in, std::inserter(missing, missing.end()));
    for (const auto& [name, content] : missing) expect(false, problem + name + " = " + content);
  }

  mutable std::mutex mutex_;
  std::map<std::string, std::size_t> counts_;
  std::vector<std::string> problems_;
};

/// Runs `operation()` again as `RetryPolicy` says, but with milliseconds for its seconds, so that
/// the time is spent on work.
template <class Operation>
auto retried(Findings& findings, const std::string& name, Operation operation) {
  double delay = RetryPolicy::baseDelay;
  for (std::int64_t retries = 0;; ++retries) {
    auto result = operation();
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
