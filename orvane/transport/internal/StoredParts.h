#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::transport {

/// A part that the store holds of an unfinished upload.
struct StoredPart {
  std::int64_t number = 0;
  std::int64_t size = 0;
  std::string eTag;  ///< Without quotes.

  friend bool operator==(const StoredPart&, const StoredPart&) = default;
};

/// One response to a request for the list of parts.
struct StoredPartsPage {
  std::vector<StoredPart> parts;
  std::optional<std::int64_t> next;  ///< The marker of the page that follows, if one does.
};

/// Reads a response. Parts without number, size or ETag are left out.
[[nodiscard]] StoredPartsPage storedPartsIn(std::string_view text);

/// Whether an ETag has the form of an MD5 sum: 32 lower-case hexadecimal digits.
[[nodiscard]] bool isMd5(std::string_view eTag) noexcept;

/// The ETag that stores give an object of these parts; nothing where one of them is no MD5 sum.
[[nodiscard]] std::optional<std::string> eTagOfParts(const std::vector<std::string>& eTags);

}  // namespace orvane::transport
