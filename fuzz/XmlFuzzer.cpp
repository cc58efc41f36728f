// Elements of responses, beside the listing: an element's text is a part of the response,
// references become no more text than they were, and parts and unfinished uploads of the store are
// only named whole.

#include <orvane/platform/base/Utf8.h>
#include <orvane/tagsync/internal/TagListing.h>
#include <orvane/transport/XMLTagParser.h>
#include <orvane/transport/XmlText.h>
#include <orvane/transport/internal/StoredParts.h>

#include "Require.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto element = orvane::XMLTagParser::extractTag("Code", orvane::bytesOf(text));
  require(element.has_value() <= orvane::platform::isUtf8(text));
  if (element) require(text.contains("<Code>" + *element + "</Code>"));
  if (!orvane::platform::isUtf8(text)) return 0;
  const auto plain = orvane::withoutXmlReferences(text);
  require(plain.size() <= text.size() && orvane::platform::isUtf8(plain));
  if (!text.contains('&')) require(plain == text);
  for (const auto& part : orvane::transport::storedPartsIn(text).parts) {
    require(text.contains("<Part>") && part.number >= 0 && part.size >= 0);
  }
  for (const auto& file : orvane::tagsync::tagFilesInListing(text, "p/tags/")) {
    require(!file.uuid.empty() && text.contains("p/tags/" + file.uuid + "/tags.jsonl"));
  }
  return 0;
}
