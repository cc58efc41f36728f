#pragma once

#include <string>
#include <string_view>

namespace orvane::internal {

/// `text` with each reference of XML (&amp; and its four like, &#38; and &#x26;) replaced by the
/// character that it stands for. What is none, or stands for no character, stays as it is.
[[nodiscard]] std::string withoutXmlReferences(std::string_view text);

}  // namespace orvane::internal
