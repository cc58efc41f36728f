// A tag object from another device: every line that is accepted must be JSON by another parser's
// judgement too, and must be the same after it was written and read again.

#include <orvane/tagsync/internal/TagObject.h>

#include "IsJson.h"
#include "Require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

using orvane::tagsync::TagLine;
using orvane::tagsync::TagObjectReader;
using orvane::tagsync::TagObjectWriter;

/// Writes what has been read, and reads it again.
void checkRoundTrip(const TagLine& line) {
  if (!line.assetId || !line.tags || !line.ts) return;
  TagObjectWriter writer(*line.ts);
  writer.append(*line.assetId, *line.tags, line.s3Key.value_or(""));
  TagObjectReader reader{std::string(orvane::textOf(writer.takeBody()))};
  TagLine again;
  require(reader.next(again));
  require(again.assetId == line.assetId && again.tags == line.tags && again.ts == line.ts);
  require(again.s3Key.value_or("") == line.s3Key.value_or(""));
  require(!reader.next(again));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  TagObjectReader reader(input);
  if (!reader.isUtf8()) return 0;
  std::size_t accepted = 0;
  for (TagLine line; reader.next(line); ++accepted) checkRoundTrip(line);

  for (std::string_view rest = input; !rest.empty();) {
    const auto text = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(text.size() + 1, rest.size()));
    TagObjectReader alone{std::string(text)};
    TagLine line;
    if (!alone.next(line)) continue;
    require(isJson(text));
    require(accepted-- > 0);
  }
  require(accepted == 0);
  return 0;
}
