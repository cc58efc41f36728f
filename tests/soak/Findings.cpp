#include "Findings.h"

#include <orvane/platform/UrlError.h>

#include <condition_variable>
#include <iterator>

namespace orvane::soak {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kProblemsKept = 20;

bool isLostConnection(const Error& error) {
  constexpr auto kLost = platform::UrlErrorCode::networkConnectionLost;
  return error.domain() == Error::kUrlLoading && error.code() == static_cast<std::int64_t>(kLost) &&
         RetryPolicy::isRetryable(error);
}

}  // namespace

void Findings::count(const std::string& what, std::size_t times) {
  const std::lock_guard lock(mutex_);
  counts_[what] += times;
}

void Findings::countFailure(const std::string& operation, const Error& error) {
  const auto what = operation + ": " + error.domain() + " " + std::to_string(error.code());
  count(what);
  expect(isLostConnection(error), what + " (" + error.description() + ")");
}

void Findings::expect(bool right, const std::string& problem) {
  const std::lock_guard lock(mutex_);
  if (!right && problems_.size() < kProblemsKept) problems_.push_back(problem);
}

void Findings::expectSame(const Lines& expected, const Lines& found) {
  std::vector<std::string> lines;
  std::ranges::set_difference(expected, found, std::back_inserter(lines));
  for (const auto& line : lines) expect(false, "lost: " + line);
  lines.clear();
  std::ranges::set_difference(found, expected, std::back_inserter(lines));
  for (const auto& line : lines) expect(false, "never written: " + line);
}

void Findings::expectSome(const std::string& what) {
  std::unique_lock lock(mutex_);
  const bool some = counts_[what] > 0;
  lock.unlock();
  expect(some, "there were no " + what);
}

bool Findings::good() const {
  const std::lock_guard lock(mutex_);
  return problems_.empty();
}

void Findings::print(std::ostream& output) const {
  const std::lock_guard lock(mutex_);
  for (const auto& [what, times] : counts_) output << "  " << times << "  " << what << '\n';
  for (const auto& problem : problems_) output << "  PROBLEM: " << problem << '\n';
}

void pause(const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any never;
  std::unique_lock lock(mutex);
  never.wait_for(lock, stop, 2ms, [] { return false; });
}

}  // namespace orvane::soak
