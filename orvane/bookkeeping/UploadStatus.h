#pragma once

#include <optional>
#include <string_view>

namespace orvane {

/// Where the upload of an asset stands.
enum class UploadStatus {
  pending,      ///< Waiting; where every reset returns a record to.
  uploading,    ///< In flight.
  completed,    ///< The object is in the bucket.
  failed,       ///< Given up, until it is reset.
  retrying,     ///< Failed before, in flight again.
  excluded,     ///< Not to be uploaded.
  remoteAlias,  ///< Kept for the host; no rule of the engine selects it.
};

/// The case's name as it stands in files, for example "remoteAlias"; empty for a value that is none
/// of the cases.
[[nodiscard]] std::string_view uploadStatusText(UploadStatus status) noexcept;

/// The case of exactly that name, letter case included; nothing for any other text.
[[nodiscard]] std::optional<UploadStatus> uploadStatusFromText(std::string_view text) noexcept;

}  // namespace orvane
