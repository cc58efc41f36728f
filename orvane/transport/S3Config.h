#pragma once

#include <orvane/platform/http/Url.h>

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// Where the object store is, and as whom the engine talks to it.
///
/// A plain value: copy it freely between threads.
///
///     S3Config config{.bucket = "photos", .region = "eu-central-1", .accessKey = "...",
///                     .secretKey = "...", .prefix = "backup/", .endpoint =
///                     "https://s3.example.org"};
///     config.url("2024/IMG 1.jpg");  // https://s3.example.org/photos/backup/2024/IMG%201.jpg
struct S3Config {
  std::string bucket;     ///< Second segment of every object URL, placed there as it is.
  std::string region;     ///< Named in the signature's credential scope.
  std::string accessKey;  ///< Sent with every request.
  std::string secretKey;  ///< Signs requests; never sent, never logged.
  /// Put before every key as it is; no separator is added. For tags (`TagSyncService`) it may hold
  /// ASCII letters, digits and "-._~/" only: they are read under the prefix as it stands, while
  /// uploads escape it.
  std::string prefix;
  /// Base URL: scheme, host, optionally a port and a path; no user name and no password, which
  /// would go into log lines and error texts.
  std::string endpoint;
  std::optional<std::string> tenantName = {};  ///< For the host; the engine does not read it.

  /// Reads the form that `toJson` writes; unknown members are ignored. Absent when the text is
  /// not JSON, lacks one of the first six members, or holds one of another type than text.
  [[nodiscard]] static std::optional<S3Config> fromJson(std::string_view text);

  /// One compact JSON object with the fields' names; "tenantName" only when present. A text that
  /// is not UTF-8 has no JSON form: the result is then empty.
  [[nodiscard]] std::string toJson() const;

  /// Whether bucket, region, both keys and endpoint are all non-empty.
  [[nodiscard]] bool isValid() const noexcept;

  /// The endpoint's host name, without scheme, port and path; the endpoint itself where it is no
  /// URL or has no host.
  [[nodiscard]] std::string host() const;

  /// The path-style URL of an object: endpoint, bucket, then prefix and key with everything
  /// escaped that a path cannot hold. Absent when that is no URL.
  [[nodiscard]] std::optional<Url> url(std::string_view forKey) const;

  friend bool operator==(const S3Config&, const S3Config&) = default;
};

}  // namespace orvane
