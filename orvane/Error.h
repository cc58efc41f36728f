#pragma once

#include <any>
#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <utility>

namespace orvane {

/// Any failure the engine reports.
///
/// Three values say what happened: a domain (who is speaking), a code (what it means in that
/// domain) and a sentence for people. Typed errors such as `S3Error` convert to an `Error` and can
/// be taken out again with `as`.
///
/// A plain value: copy it freely between threads. Descriptions never hold a secret.
///
///     if (const auto* s3 = error.as<S3Error>()) ...
///     else if (error.domain() == Error::kUrlLoading && error.code() == -1001) ...
class Error {
 public:
  /// Failures of the HTTP client; the codes are the ones of `UrlErrorCode`.
  static constexpr std::string_view kUrlLoading = "URLLoading";
  /// Failures of the operating system; the code is an errno value.
  static constexpr std::string_view kPosix = "POSIX";
  /// Failures of the database layer; the code is SQLite's extended result code.
  static constexpr std::string_view kDatabase = "Database";

  /// An error known only by domain, code and sentence.
  Error(std::string_view domain, std::int64_t code, std::string description)
      : domain_(domain), code_(code), description_(std::move(description)) {}

  /// An error that also carries the typed value it was made from.
  Error(std::string_view domain, std::int64_t code, std::string description, std::any cause)
      : domain_(domain),
        code_(code),
        description_(std::move(description)),
        cause_(std::move(cause)) {}

  [[nodiscard]] const std::string& domain() const noexcept { return domain_; }
  [[nodiscard]] std::int64_t code() const noexcept { return code_; }
  [[nodiscard]] const std::string& description() const noexcept { return description_; }

  /// The typed error this one was made from, or null when it is of another type.
  /// The pointer lives as long as this `Error`.
  template <class Cause>
  [[nodiscard]] const Cause* as() const noexcept {
    return std::any_cast<Cause>(&cause_);
  }

  /// Equal when domain, code and description are.
  friend bool operator==(const Error& a, const Error& b) noexcept {
    return a.domain_ == b.domain_ && a.code_ == b.code_ && a.description_ == b.description_;
  }

 private:
  std::string domain_;
  std::int64_t code_;
  std::string description_;
  std::any cause_;
};

/// A value, or the reason why there is none.
template <class T>
using Result = std::expected<T, Error>;

}  // namespace orvane
