// What is written is JSON by another parser's judgement, and is read as it was written. The input's
// first eight bytes are a number, the rest is a text.

#include <orvane/platform/base/Utf8.h>
#include <orvane/platform/json/JsonReader.h>
#include <orvane/platform/json/JsonWriter.h>

#include "IsJson.h"
#include "Require.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

using namespace orvane::platform;

struct Content {
  std::string text;
  std::int64_t whole = 0;
  double real = 0;
  std::vector<std::string> texts;

  friend bool operator==(const Content&, const Content&) = default;
};

constexpr Members<Content, 4> kMembers{{requiredMember<Content, &Content::text>("text"),
                                        requiredMember<Content, &Content::whole>("whole"),
                                        requiredMember<Content, &Content::real>("real"),
                                        requiredMember<Content, &Content::texts>("texts")}};

void checkWritten(const Content& content, BadText badText) {
  JsonWriter writer(badText);
  writer.beginObject();
  writer.member("text", std::string_view(content.text));
  writer.member("whole", content.whole);
  writer.member("real", content.real);
  writer.member("texts", content.texts);
  writer.endObject();
  const bool hasForm =
      (badText == BadText::repair || isUtf8(content.text)) && std::isfinite(content.real);
  require(writer.ok() == hasForm);
  if (!hasForm) return;
  require(isJson(writer.text()));
  Content read;
  require(readDocument(simdjson::padded_string(writer.text()),
                       [&](auto& object) { return readMembers(object, kMembers, read); }));
  auto expected = content;
  expected.text = repairedUtf8(content.text);
  for (auto& text : expected.texts) text = repairedUtf8(text);
  require(read == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Content content;
  if (size < sizeof content.whole) return 0;
  std::memcpy(&content.whole, data, sizeof content.whole);
  content.real = std::bit_cast<double>(content.whole);
  content.text.assign(reinterpret_cast<const char*>(data) + sizeof content.whole,
                      size - sizeof content.whole);
  content.texts = {content.text, ""};
  checkWritten(content, BadText::refuse);
  checkWritten(content, BadText::repair);
  return 0;
}
