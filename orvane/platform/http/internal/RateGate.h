#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

namespace orvane::platform {

/// Lets so many bytes pass per second. Those that have to wait stand in a row and pass one piece
/// each, so that all get the same share. Not synchronised; whoever calls says what time it is.
class RateGate {
 public:
  using Clock = std::chrono::steady_clock;

  /// Something whose bytes pass. It must `leave` before it is destroyed.
  struct Passenger {
    std::function<void()> resume;  ///< Has the bytes offered again that had to wait.
    bool isWaiting = false;
    std::size_t credit = 0;  ///< Bytes that have been counted and have not passed yet.
  };

  /// Without a rate everything passes at once.
  void setRate(std::optional<std::int64_t> bytesPerSecond, Clock::time_point now);
  [[nodiscard]] bool isLimited() const noexcept { return rate_.has_value(); }

  /// How many of these bytes may pass now. With none the passenger waits, and is resumed.
  [[nodiscard]] std::size_t admit(Passenger& passenger, std::size_t bytes, Clock::time_point now);
  /// The same for bytes that cannot be parted.
  [[nodiscard]] bool admitWhole(Passenger& passenger, std::size_t bytes, Clock::time_point now);

  void leave(Passenger& passenger);

  /// Resumes those whose turn it is.
  void resumeNext(Clock::time_point now);
  /// When somebody's turn comes; `max()` when nobody waits.
  [[nodiscard]] Clock::time_point nextTurn() const;

 private:
  [[nodiscard]] bool isTurnOf(Passenger& passenger, Clock::time_point now);
  [[nodiscard]] std::size_t pieceSize() const;
  /// Counts bytes for the passenger, as far as they were not before.
  void count(Passenger& passenger, std::size_t bytes, Clock::time_point now);
  [[nodiscard]] Clock::duration timeFor(double bytes) const;

  std::optional<double> rate_;
  Clock::time_point free_;  ///< When all that was counted has passed at this rate.
  std::deque<Passenger*> row_;
};

/// The two directions.
struct RateGates {
  RateGate sending;
  RateGate receiving;
};

}  // namespace orvane::platform
