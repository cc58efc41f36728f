#include <orvane/platform/http/Url.h>

#include <orvane/platform/base/PercentEncoding.h>

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(Url, GivesItsPartsAsWritten) {
  const struct {
    std::string text;
    std::string scheme, host, port, path, query;
  } cases[] = {
      {"HTTP://Store.Example:9000/a/../b%2fc?x=1&y#f", "HTTP", "Store.Example", "9000",
       "/a/../b%2fc", "x=1&y"},
      {"http://[::1]:80", "http", "[::1]", "80", "", ""},
      {"http://user@h%20x/p", "http", "h%20x", "", "/p", ""},
      {"/only/path?", "", "", "", "/only/path", ""},
      {"store:9000", "store", "", "", "9000", ""},
      {"", "", "", "", "", ""},
      {"http://h:/", "http", "h", "", "/", ""},
  };
  for (const auto& [text, scheme, host, port, path, query] : cases) {
    auto parsed = Url::parse(text);
    ASSERT_TRUE(parsed) << text;
    const Url copy = *parsed;
    parsed.reset();  // Positions, not pointers: a copy needs no original.
    EXPECT_EQ(copy.scheme(), scheme) << text;
    EXPECT_EQ(copy.host(), host) << text;
    EXPECT_EQ(copy.port(), port) << text;
    EXPECT_EQ(copy.encodedPath(), path) << text;
    EXPECT_EQ(copy.encodedQuery(), query) << text;
    EXPECT_EQ(copy.text(), text);
  }
}

TEST(Url, RejectsWhatBreaksTheGrammar) {
  for (const std::string text : {"http://h/a b", "http://h/%zz", "http://h/\u00e8", "http://h:x/",
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

TEST(PercentEncoding, DecodesWhatItCan) {
  using platform::percentDecodeText;
  EXPECT_EQ(platform::percentDecode("a%2fb%2Fc%"), "a/b/c%");
  EXPECT_EQ(platform::percentDecode("%zz%4"), "%zz%4");
  EXPECT_EQ(percentDecodeText("%C3%A8+"), "\u00e8+");
  EXPECT_EQ(percentDecodeText("%C3"), std::nullopt);
  EXPECT_EQ(percentDecodeText("100%"), std::nullopt);
}

}  // namespace
}  // namespace orvane
