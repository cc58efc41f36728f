#include <orvane/transport/internal/ModificationTime.h>

#include <orvane/transport/internal/WholeNumber.h>

#include <algorithm>

namespace orvane::transport {
namespace {

constexpr std::size_t kFractionDigits = 9;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
/// Whole seconds that a count of nanoseconds in 64 bits has room for.
constexpr std::int64_t kMaxSeconds = 9'223'372'035;

}  // namespace

std::string modificationTimeText(FileTime time) {
  const auto count = time.time_since_epoch().count();
  const auto seconds = count / kNanosecondsPerSecond;
  const auto fraction = count % kNanosecondsPerSecond;
  const auto digits = std::to_string(kNanosecondsPerSecond + std::abs(fraction)).substr(1);
  return (count < 0 ? "-" : "") + std::to_string(std::abs(seconds)) + "." + digits;
}

std::optional<FileTime> modificationTimeIn(const HttpHeaders& headers) {
  auto text = headers.get(std::string(kModificationTimeField)).value_or("");
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const auto point = std::min(text.find('.'), text.size());
  std::string fraction(text.substr(std::min(point + 1, text.size())));
  fraction.resize(kFractionDigits, '0');
  const auto seconds = wholeNumber(text.substr(0, point));
  const auto nanoseconds = wholeNumber(fraction);
  if (!seconds || !nanoseconds || *seconds > kMaxSeconds) return std::nullopt;
  const std::chrono::nanoseconds count(*seconds * kNanosecondsPerSecond + *nanoseconds);
  return FileTime(negative ? -count : count);
}

}  // namespace orvane::transport
