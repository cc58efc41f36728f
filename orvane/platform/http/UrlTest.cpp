#include <orvane/platform/http/Url.h>

#include "support/Test.h"

namespace orvane {
namespace {

TEST(Url, GivesItsPartsAsWrittenOrRefusesWhatBreaksTheGrammar) {
  const std::pair<std::string, std::string> cases[] = {
      {"HTTP://Store.Example:9000/a/../b%2fc?x=1&y#f", "HTTP Store.Example 9000 /a/../b%2fc x=1&y"},
      {"http://[::1]:80", "http [::1] 80  "},
      {"http://user@h%20x/p", "http h%20x  /p "},
      {"/only/path?", "   /only/path "},
      {"", "    "},
      {"http://h:/", "http h  / "}};
  for (const auto& [text, parts] : cases) {
    auto parsed = Url::parse(text);
    ASSERT_TRUE(parsed) << text;
    const Url url = *parsed;
    parsed.reset();  // A copy needs no original.
    std::ostringstream seen;
    seen << url.scheme() << ' ' << url.host() << ' ' << url.port() << ' ' << url.encodedPath()
         << ' ' << url.encodedQuery();
    EXPECT_EQ(seen.str(), parts) << text;
    EXPECT_EQ(url.text(), text);
  }
  for (const auto* text : {"http://h/a b", "http://h/%zz", "http://h/\u00e8", "http://h:x/",
                           "http://h/a\nb", "http://[::1/", "1http://h/", "http://h/<>"}) {
    EXPECT_FALSE(Url::parse(text)) << text;
  }
}

TEST(Url, WithQueryReplacesAndEscapes) {
  const auto url = Url::parse("http://h/p?old=1#f").value();
  EXPECT_EQ(url.withQuery({{"uploads", std::nullopt}})->text(), "http://h/p?uploads");
  EXPECT_EQ(url.withQuery({{"n", "1"}, {"u d", "a+b/c=&?\u00e8"}})->text(),
            "http://h/p?n=1&u%20d=a%2Bb%2Fc%3D%26%3F%C3%A8");
}

}  // namespace
}  // namespace orvane
