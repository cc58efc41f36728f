#include <gtest/gtest.h>
#include <orvane/transport/XMLTagParser.h>

namespace orvane {
namespace {

TEST(XMLTagParser, FindsTheFirstPlainElement) {
  const struct {
    std::string xml;
    std::optional<std::string> text;
  } cases[] = {
      {"<A><ETag>one</ETag><ETag>two</ETag></A>", "one"},
      {"<ETag> &quot;a&amp;b\n </ETag>", " &quot;a&amp;b\n "},
      {"<ETag></ETag>", ""},
      {"<ETag><ETag>x</ETag>", "<ETag>x"},
      {"<ETag>no end", std::nullopt},
      {"</ETag>", std::nullopt},
      {"</ETag><ETag>x</ETag>", std::nullopt},
      {"<ETag a=\"1\">x</ETag>", std::nullopt},
      {"<etag>x</etag>", std::nullopt},
      {"<ETag>\xC3\x28</ETag>", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [xml, text] : cases) {
    EXPECT_EQ(XMLTagParser::extractTag("ETag", bytesOf(xml)), text) << xml;
  }
}

}  // namespace
}  // namespace orvane
