#include <orvane/platform/http/internal/RateGate.h>

#include <algorithm>
#include <utility>

namespace orvane::platform {
namespace {

/// Pieces pass this often at least, within these bounds.
constexpr double kPiecesPerSecond = 32;
constexpr double kSmallestPiece = 1024;
constexpr double kLargestPiece = 512 * 1024;
/// What nobody used may be made up for later, up to this; otherwise a pause would let the next
/// seconds exceed the rate.
constexpr std::chrono::milliseconds kMostUnused(250);

}  // namespace

void RateGate::setRate(std::optional<std::int64_t> bytesPerSecond, Clock::time_point now) {
  rate_.reset();
  if (bytesPerSecond) rate_ = static_cast<double>(std::max<std::int64_t>(*bytesPerSecond, 1));
  free_ = now;
}

std::size_t RateGate::admit(Passenger& passenger, std::size_t bytes, Clock::time_point now) {
  if (!isTurnOf(passenger, now)) return 0;
  if (rate_) bytes = std::min(bytes, pieceSize());
  count(passenger, bytes, now);
  return bytes;
}

bool RateGate::admitWhole(Passenger& passenger, std::size_t bytes, Clock::time_point now) {
  if (!isTurnOf(passenger, now)) return false;
  count(passenger, bytes, now);
  return true;
}

bool RateGate::isTurnOf(Passenger& passenger, Clock::time_point now) {
  if (!rate_ || passenger.credit > 0) return true;
  if (passenger.isWaiting) return false;
  if (row_.empty() && now >= free_) return true;
  row_.push_back(&passenger);
  passenger.isWaiting = true;
  return false;
}

void RateGate::count(Passenger& passenger, std::size_t bytes, Clock::time_point now) {
  const auto before = std::exchange(passenger.credit, 0);
  if (!rate_) return;
  free_ = std::max(free_, now - kMostUnused) +
          timeFor(static_cast<double>(bytes) - static_cast<double>(before));
}

void RateGate::leave(Passenger& passenger) {
  std::erase(row_, &passenger);
  passenger.isWaiting = false;
  if (rate_) free_ -= timeFor(static_cast<double>(passenger.credit));
  passenger.credit = 0;
}

void RateGate::resumeNext(Clock::time_point now) {
  while (now >= nextTurn()) {
    auto& passenger = *row_.front();
    row_.pop_front();
    passenger.isWaiting = false;
    // Counted now, since the bytes may come only when the others have been resumed.
    count(passenger, pieceSize(), now);
    passenger.credit = pieceSize();
    passenger.resume();
  }
}

RateGate::Clock::time_point RateGate::nextTurn() const {
  if (row_.empty()) return Clock::time_point::max();
  return rate_ ? free_ : Clock::time_point::min();
}

std::size_t RateGate::pieceSize() const {
  return static_cast<std::size_t>(
      std::clamp(rate_.value_or(0) / kPiecesPerSecond, kSmallestPiece, kLargestPiece));
}

RateGate::Clock::duration RateGate::timeFor(double bytes) const {
  return std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(bytes / rate_.value_or(1)));
}

}  // namespace orvane::platform
