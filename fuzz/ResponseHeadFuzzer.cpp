// The head of a response, line by line as the client library hands it out: every value is text.

#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/http/internal/ResponseHead.h>

#include "Require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  orvane::platform::ResponseHead head;
  while (!rest.empty() && !head.isComplete()) {
    const auto line = rest.substr(0, rest.find('\n') + 1);
    const auto taken = line.empty() ? rest : line;
    rest.remove_prefix(taken.size());
    if (!head.read(taken)) return 0;
  }
  for (const auto& [name, value] : head.takeHeaders()) {
    require(!name.empty() && orvane::platform::isUtf8(value));
    require(!value.contains('\n'));
  }
  return 0;
}
