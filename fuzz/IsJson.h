#pragma once

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <string_view>

/// Whether the text is JSON by the judgement of a parser that the engine does not read with.
inline bool isJson(std::string_view text) {
  constexpr unsigned kStrict = rapidjson::kParseValidateEncodingFlag |
                               rapidjson::kParseNumbersAsStringsFlag |
                               rapidjson::kParseIterativeFlag;
  constexpr std::string_view kByteOrderMark = "\uFEFF";  // The engine lets one pass.
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::BaseReaderHandler<> ignoreAll;
  const auto result = rapidjson::Reader().Parse<kStrict>(stream, ignoreAll);
  // Valid, but more than this parser has room for.
  return !result.IsError() || result.Code() == rapidjson::kParseErrorNumberTooBig;
}
