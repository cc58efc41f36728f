#pragma once

#include <orvane/Error.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// A failure of the object-store client, with a fixed sentence per case.
///
/// A plain value; converts to `Error` wherever one is wanted, and `error.as<S3Error>()` takes it
/// out again.
///
///     return std::unexpected(S3Error::httpError(403));
class S3Error {
 public:
  enum class Case {
    httpError,             ///< The response had a status of 300 or more.
    serverError,           ///< The response lacks something, which the message names.
    invalidURL,            ///< Configuration and key make no URL; nothing was sent.
    fileReadError,         ///< The local file, or an expected body, cannot be read.
    sessionNotConfigured,  ///< For hosts: a background session is missing.
    exportFailed,          ///< For hosts: a photo could not be exported.
  };

  /// The domain of the `Error` that an `S3Error` converts to. Its code is the status of an
  /// `httpError`, and otherwise the case's number.
  static constexpr std::string_view kDomain = "S3Error";

  [[nodiscard]] static S3Error httpError(std::int64_t statusCode) {
    return {Case::httpError, statusCode, {}};
  }
  /// The same; the response body is discarded.
  [[nodiscard]] static S3Error httpError(std::int64_t statusCode, std::string_view body);
  [[nodiscard]] static S3Error serverError(std::string message) {
    return {Case::serverError, 0, std::move(message)};
  }
  [[nodiscard]] static S3Error invalidURL() { return S3Error(Case::invalidURL); }
  [[nodiscard]] static S3Error fileReadError() { return S3Error(Case::fileReadError); }
  [[nodiscard]] static S3Error sessionNotConfigured() {
    return S3Error(Case::sessionNotConfigured);
  }
  [[nodiscard]] static S3Error exportFailed() { return S3Error(Case::exportFailed); }

  /// Another name for `serverError`.
  [[nodiscard]] static S3Error parseError(std::string message) {
    return serverError(std::move(message));
  }
  /// Equal to `fileReadError()`.
  [[nodiscard]] static S3Error noData() { return fileReadError(); }

  [[nodiscard]] Case kind() const noexcept { return kind_; }
  /// The status of an `httpError`; nothing for every other case.
  [[nodiscard]] std::optional<std::int64_t> statusCode() const noexcept;
  /// The sentence for people: "HTTP error 403", the message of a `serverError`, ...
  [[nodiscard]] std::string errorDescription() const;

  operator Error() const;  // NOLINT(google-explicit-constructor): meant to be implicit

  /// Equal when case and payload are.
  friend bool operator==(const S3Error&, const S3Error&) = default;

 private:
  explicit S3Error(Case kind) noexcept : kind_(kind) {}
  S3Error(Case kind, std::int64_t statusCode, std::string message)
      : kind_(kind), statusCode_(statusCode), message_(std::move(message)) {}

  Case kind_;
  std::int64_t statusCode_ = 0;
  std::string message_;
};

}  // namespace orvane
