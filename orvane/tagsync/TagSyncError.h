#pragma once

#include <orvane/Error.h>

#include <string>
#include <string_view>
#include <utility>

namespace orvane {

/// A failure of the tag synchronisation's own checks: a fixed beginning per case, then a detail.
///
/// A plain value; converts to `Error` wherever one is wanted, and `error.as<TagSyncError>()` takes
/// it out again. Failures of the database, the HTTP client and the uploader are not wrapped in it.
class TagSyncError {
 public:
  enum class Case {
    uploadFailed,    ///< For hosts: the engine reports the uploader's own errors.
    downloadFailed,  ///< No URL, or an answer outside 200 to 299.
    metadataError,   ///< For hosts.
    parseError,      ///< A tag object or a listing that is not UTF-8.
    databaseError,   ///< For hosts: the engine reports the database's own errors.
  };

  /// The domain of the `Error` that a `TagSyncError` converts to. Its code is the case's number.
  static constexpr std::string_view kDomain = "TagSyncError";

  [[nodiscard]] static TagSyncError uploadFailed(std::string detail) {
    return {Case::uploadFailed, std::move(detail)};
  }
  [[nodiscard]] static TagSyncError downloadFailed(std::string detail) {
    return {Case::downloadFailed, std::move(detail)};
  }
  [[nodiscard]] static TagSyncError metadataError(std::string detail) {
    return {Case::metadataError, std::move(detail)};
  }
  [[nodiscard]] static TagSyncError parseError(std::string detail) {
    return {Case::parseError, std::move(detail)};
  }
  [[nodiscard]] static TagSyncError databaseError(std::string detail) {
    return {Case::databaseError, std::move(detail)};
  }

  [[nodiscard]] Case kind() const noexcept { return kind_; }
  [[nodiscard]] const std::string& detail() const noexcept { return detail_; }
  /// The sentence for people: "Tag download failed: HTTP error: 404", ...
  [[nodiscard]] std::string errorDescription() const;

  operator Error() const;  // NOLINT(google-explicit-constructor): meant to be implicit

  /// Equal when case and detail are.
  friend bool operator==(const TagSyncError&, const TagSyncError&) = default;

 private:
  TagSyncError(Case kind, std::string detail) : kind_(kind), detail_(std::move(detail)) {}

  Case kind_;
  std::string detail_;
};

}  // namespace orvane
