#include <orvane/bookkeeping/BandwidthStatsStore.h>

#include <orvane/bookkeeping/internal/BandwidthSampleJson.h>
#include <orvane/platform/host/Preferences.h>

#include <iterator>
#include <limits>
#include <utility>

namespace orvane {
namespace {

/// A failure to read that took longer has waited for another process.
constexpr std::chrono::seconds kLongFailure{1};

std::int64_t saturatingSum(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  using Limits = std::numeric_limits<std::int64_t>;
  return b < 0 ? Limits::min() : Limits::max();
}

}  // namespace

BandwidthStatsStore& BandwidthStatsStore::shared() {
  // Never destroyed: other static objects of the host may still call it while the process exits.
  static auto& instance = *new BandwidthStatsStore;
  return instance;
}

BandwidthStatsStore::BandwidthStatsStore() { static_cast<void>(load()); }

std::int64_t BandwidthStatsStore::totalBytesTransferred() const {
  const std::lock_guard guard(lock_);
  return totalBytesTransferred_;
}

std::vector<BandwidthSample> BandwidthStatsStore::samples() const {
  const std::lock_guard guard(lock_);
  return samples_;
}

void BandwidthStatsStore::addCompletedBytes(std::int64_t count) {
  {
    const std::lock_guard guard(lock_);
    totalBytesTransferred_ = saturatingSum(totalBytesTransferred_, count);
  }
  storeTotal();
}

void BandwidthStatsStore::addSample(double bytesPerSecond) {
  {
    const std::lock_guard guard(lock_);
    samples_.emplace_back(Date::now(), bytesPerSecond);
    dropOldest();
  }
  storeSamples();
}

void BandwidthStatsStore::reset() {
  {
    const std::lock_guard guard(lock_);
    totalBytesTransferred_ = 0;
    samples_.clear();
    isLoaded_ = true;  // What is stored does not count any more.
  }
  storeTotal();
  storeSamples();
}

bool BandwidthStatsStore::load() {
  auto& preferences = Preferences::shared();
  const auto begun = Clock::now();
  if (begun < loadAgainAt_) return false;
  const auto total = preferences.readInteger(totalBytesKey);
  // Where the total cannot be told, asking for the samples would only wait as long once more.
  const auto stored = total ? preferences.readBytes(samplesKey) : std::unexpected(total.error());
  if (!stored) {
    const auto took = Clock::now() - begun;
    if (took > kLongFailure) loadAgainAt_ = Clock::now() + took;
    return false;
  }
  auto earlier = bookkeeping::BandwidthSampleJson::decode(textOf(stored->value_or(Bytes())));
  const std::lock_guard guard(lock_);
  if (std::exchange(isLoaded_, true)) return true;
  totalBytesTransferred_ = saturatingSum(total->value_or(0), totalBytesTransferred_);
  const bool isFirst = samples_.empty();
  if (earlier) samples_.insert(samples_.begin(), earlier->begin(), earlier->end());
  if (!isFirst) dropOldest();
  return true;
}

void BandwidthStatsStore::dropOldest() {
  if (std::ssize(samples_) > maxSamples) {
    samples_.erase(samples_.begin(), samples_.end() - maxSamples);
  }
}

bool BandwidthStatsStore::mayStore() {
  {
    const std::lock_guard guard(lock_);
    if (isLoaded_) return true;
  }
  return load();
}

void BandwidthStatsStore::storeTotal() {
  const std::lock_guard guard(writing_);
  if (mayStore()) Preferences::shared().set(totalBytesKey, totalBytesTransferred());
}

void BandwidthStatsStore::storeSamples() {
  const std::lock_guard guard(writing_);
  if (!mayStore()) return;
  const auto current = samples();
  if (current.empty()) return Preferences::shared().remove(samplesKey);
  const auto json = bookkeeping::BandwidthSampleJson::encode(current);
  if (json) Preferences::shared().set(samplesKey, bytesOf(*json));
}

}  // namespace orvane
