#pragma once

#include <string>
#include <string_view>

namespace orvane {

/// `text`, UTF-8 as it stands in a response that is XML, with each reference (&amp; and its four
/// like, &#38; and &#x26;) replaced by the character that it stands for. Other text, and references
/// that stand for no character, stay as they are. Any thread may call it; it takes linear time,
/// whatever the text.
///
///     const std::string key = withoutXmlReferences(listed.key);  // "you &amp; me" is "you & me"
[[nodiscard]] std::string withoutXmlReferences(std::string_view text);

}  // namespace orvane
