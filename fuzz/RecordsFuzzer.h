#pragma once

#include <orvane/bookkeeping/internal/RecordMap.h>

#include "IsJson.h"
#include "Require.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The file of a record store: what is accepted must be JSON by another parser's judgement too, and
/// must be the same after it was written and read again.
template <class Record, class Json>
void checkRecords(const std::string& input) {
  using Records = orvane::bookkeeping::RecordMap<Record, Json>;
  const auto written = [](Records& records) {
    std::string text;
    require(records.encodeAll());
    require(records.write([&text](std::string_view part) {
      text += part;
      return true;
    }));
    return text;
  };
  auto records = Records::decode(simdjson::padded_string(input));
  if (!records) return;
  require(isJson(input));
  const auto text = written(*records);
  auto again = Records::decode(simdjson::padded_string(text));
  require(again && again->size() == records->size() && written(*again) == text);
}
