#include "Findings.h"

#include <orvane/platform/UrlError.h>

#include <iterator>

namespace orvane::soak {

void Findings::count(const std::string& what, std::size_t times) {
  const std::lock_guard lock(mutex_);
  counts_[what] += times;
}

void Findings::countFailure(const std::string& operation, const Error& error) {
  constexpr auto kLost = platform::UrlErrorCode::networkConnectionLost;
  const auto what = operation + ": " + error.domain() + " " + std::to_string(error.code());
  count(what);
  expect(error.domain() == Error::kUrlLoading && error.code() == static_cast<std::int64_t>(kLost) &&
             RetryPolicy::isRetryable(error),
         what + " (" + error.description() + ")");
}

void Findings::expect(bool right, const std::string& problem) {
  constexpr std::size_t kProblemsKept = 20;
  const std::lock_guard lock(mutex_);
  if (!right && problems_.size() < kProblemsKept) problems_.push_back(problem);
}

void Findings::expectSame(const Ledger& expected, const Ledger& found) {
  const auto expectNone = [this](const std::string& problem, const Ledger& more,
                                 const Ledger& fewer) {
    Ledger rest;
    std::ranges::set_difference(more, fewer, std::inserter(rest, rest.end()));
    for (const auto& [name, content] : rest) expect(false, problem + name + " = " + content);
  };
  expectNone("lost: ", expected, found);
  expectNone("never written: ", found, expected);
}

void Findings::expectSome(const std::string& what) {
  std::unique_lock lock(mutex_);
  const bool some = counts_[what] > 0;
  lock.unlock();
  expect(some, "there were no " + what);
}

bool Findings::report(std::ostream& output) const {
  const std::lock_guard lock(mutex_);
  for (const auto& [what, times] : counts_) output << "  " << times << "  " << what << '\n';
  for (const auto& problem : problems_) output << "  PROBLEM: " << problem << '\n';
  output << (problems_.empty() ? "Nothing is lost.\n" : "The soak has FAILED.\n");
  return problems_.empty();
}

}  // namespace orvane::soak
