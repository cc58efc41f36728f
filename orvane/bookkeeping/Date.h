#pragma once

#include <chrono>
#include <compare>
#include <cstdint>

namespace orvane {

/// A point in time as the stores write it: seconds since 2001-01-01T00:00:00Z, with fraction.
///
/// The number itself is the value, so that a date that was read is written again unchanged. A date
/// that is not finite (infinite, or not a number) cannot be written.
///
///     record.creationDate = Date::from(std::chrono::system_clock::now());
///     std::chrono::system_clock::time_point taken = record.creationDate->timePoint();
struct Date {
  using TimePoint = std::chrono::system_clock::time_point;

  /// 2001-01-01T00:00:00Z in seconds since 1970-01-01T00:00:00Z.
  static constexpr std::int64_t kReferenceDate = 978'307'200;

  double secondsSinceReferenceDate = 0;

  [[nodiscard]] static Date now() { return from(TimePoint::clock::now()); }

  [[nodiscard]] static constexpr Date from(TimePoint time) {
    using std::chrono::duration_cast, std::chrono::seconds;
    // Whole seconds and the rest apart: neither difference overflows nor loses digits.
    const auto whole = duration_cast<seconds>(time.time_since_epoch());
    const std::chrono::duration<double> rest = time.time_since_epoch() - whole;
    return {static_cast<double>(whole.count() - kReferenceDate) + rest.count()};
  }

  /// The same point in time on the system's clock, cut to its resolution. What lies outside the
  /// clock's range becomes the nearer end of it, and not a number the later one.
  [[nodiscard]] constexpr TimePoint timePoint() const {
    using Ticks = TimePoint::duration;
    using std::chrono::duration_cast, std::chrono::seconds;
    constexpr double kEnd = 1.0 + duration_cast<seconds>(Ticks::max()).count();
    if (!(secondsSinceReferenceDate < kEnd - kReferenceDate)) return TimePoint::max();
    if (secondsSinceReferenceDate <= -kEnd - kReferenceDate) return TimePoint::min();
    // The range ends within its first and last second, which only the sum can tell.
    const auto whole = static_cast<std::int64_t>(secondsSinceReferenceDate);
    const Ticks start = seconds(whole + kReferenceDate);
    const auto rest = duration_cast<Ticks>(
        std::chrono::duration<double>(secondsSinceReferenceDate - static_cast<double>(whole)));
    Ticks::rep sum = 0;
    if (__builtin_add_overflow(start.count(), rest.count(), &sum)) {
      return whole < 0 ? TimePoint::min() : TimePoint::max();
    }
    return TimePoint(Ticks(sum));
  }

  /// Earlier is less. Not a number is unordered.
  friend constexpr auto operator<=>(const Date&, const Date&) = default;
};

}  // namespace orvane
