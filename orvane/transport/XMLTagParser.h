#pragma once

#include <orvane/platform/base/Bytes.h>

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// Pulls the text of one element out of an XML response by plain text search.
struct XMLTagParser {
  XMLTagParser() = delete;

  /// The text between the first "<tag>" and the first "</tag>" of the whole input, as it is:
  /// neither trimmed nor unescaped. Absent when one is missing, when the closing one comes before
  /// the end of the opening one, or when the bytes are not UTF-8. An element with attributes is
  /// not found. Any thread may call it.
  [[nodiscard]] static std::optional<std::string> extractTag(std::string_view tag, ByteView from);
};

}  // namespace orvane
