#pragma once

#include <orvane/Error.h>

#include <cstdint>

namespace orvane {

/// Which failed transfers are worth repeating, how often and after what delay: what
/// `ResumableUploader` and `ObjectDownloader` go by, and hosts that repeat the calls of
/// `S3Uploader` and `S3MultipartUploader`, which never repeat a request themselves.
///
///     if (RetryPolicy::isRetryable(error) && tries < RetryPolicy::maxSessionRetries) ...
struct RetryPolicy {
  RetryPolicy() = delete;

  static constexpr std::int64_t maxSessionRetries = 3;    ///< Within one session of the host.
  static constexpr std::int64_t maxLifetimeRetries = 15;  ///< Over the whole life of an item.
  static constexpr double baseDelay = 2.0;                ///< Seconds before the first retry.
  static constexpr double maxDelay = 30.0;                ///< Seconds before any retry at most.

  /// Whether trying again may help. It may after an `S3Error::httpError` of 429 or of 500 and
  /// above; after a URL-loading error that says that the network or the way to the server failed
  /// (-1001, -1003, -1004, -1005, -1006, -1009, -1200); and after any error of the operating
  /// system. Everything else is final, cancellation included. Any thread may call it.
  [[nodiscard]] static bool isRetryable(const Error& error) noexcept;
};

}  // namespace orvane
