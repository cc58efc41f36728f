#include <orvane/transport/XMLTagParser.h>

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(XMLTagParser, FindsTheFirstPlainElement) {
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {"<A><ETag>one</ETag><ETag>two</ETag></A>", "one"},
      {"<ETag> &quot;a&amp;b\n </ETag>", " &quot;a&amp;b\n "},
      {"<ETag></ETag>", ""},
      {"<ETag><ETag>x</ETag>", "<ETag>x"},
      {"<ETag>no end", {}},
      {"</ETag><ETag>x</ETag>", {}},
      {"<ETag a=\"1\">x</ETag>", {}},
      {"<etag>x</etag>", {}},
      {"<ETag>\xC3\x28</ETag>", {}},
      {"", {}}};
  for (const auto& [xml, text] : cases) {
    EXPECT_EQ(XMLTagParser::extractTag("ETag", bytesOf(xml)), text) << xml;
  }
}

}  // namespace
}  // namespace orvane
