#include <orvane/transport/Listing.h>

#include <orvane/transport/XMLTagParser.h>
#include <orvane/transport/XmlText.h>

#include "support/FaultServer.h"
#include "support/StoreConfig.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using testing::answer;
using testing::configFor;
using testing::FaultServer;
using Pairs = std::vector<KeyETagPair>;

auto list(const FaultServer& server, std::string_view prefix = "") {
  return TalvexAPIService::shared().listObjects(configFor("//" + server.url() + "//"), prefix);
}

std::string entry(const std::string& content) { return "<Contents>" + content + "</Contents>"; }

std::string token(const std::string& text) {
  return "<NextContinuationToken>" + text + "</NextContinuationToken>";
}

TEST(Listing, ReadsWhatTheExpressionsMatch) {
  const std::pair<std::string, Pairs> cases[] = {
      {"", {}},
      {entry("<Key>a</Key><ETag>&quot;x&quot;</ETag>") + "\n " +
           entry("<ETag>\"\"y&quot;z\"</ETag>\n<Key>b &amp;c</Key>"),
       {{"a", "x"}, {"b &amp;c", "yz"}}},
      {entry("<Key>a</Key>") + entry("<ETag>x</ETag>") + entry("<Key></Key><ETag></ETag>"),
       {{"a", ""}, {"", ""}}},
      {entry("<Key><Key>a</Key>") + entry("<key>b</key>"), {{"<Key>a", ""}}},
      {entry("<Key>a\nb</Key>") + entry("<Key>a\u2028<Key>c</Key>"), {{"c", ""}}}};
  for (const auto& [text, pairs] : cases) {
    EXPECT_EQ(transport::parseKeyETagPairs(text), pairs) << text;
  }
}

TEST(Listing, HostilePagesAreScannedOnce) {
  // Looked at anew from each opening tag, these would take longer than ctest waits.
  for (const auto* repeated : {"<Key>\n", "<Key>", "<Key>\n</Key>", "<Key>\u2027", "\n"}) {
    std::string text;
    while (text.size() < 10'000'000) text += repeated;
    for (const auto* end : {"", "</Key>"}) {
      EXPECT_LE(transport::parseKeyETagPairs(entry(text + end)).size(), 1U) << repeated;
    }
  }
}

TEST(XMLTagParser, FindsTheFirstPlainElement) {
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {"<A><ETag>one</ETag><ETag>two</ETag></A>", "one"},
      {"<ETag> &quot;a&amp;b\n </ETag>", " &quot;a&amp;b\n "},
      {"<ETag><ETag></ETag>", "<ETag>"},
      {"<ETag>no end", {}},
      {"</ETag><ETag>x</ETag>", {}},
      {"<ETag>\xC3\x28</ETag>", {}}};
  for (const auto& [xml, text] : cases) {
    EXPECT_EQ(XMLTagParser::extractTag("ETag", bytesOf(xml)), text) << xml;
  }
}

TEST(XmlText, ReplacesReferences) {
  const std::pair<std::string, std::string> cases[] = {
      {"a&amp;b&lt;&gt;&quot;&apos;", "a&b<>\"'"},
      {"&amp;amp;&#38;lt;&#x26;", "&amp;&lt;&"},
      {"&#9;&#xd;&#xe9;&#x4E2D;&#128512;&#1114111;", "\t\r\u00e9\u4e2d\U0001f600\U0010ffff"},
      {"&#x0000041;&#" + std::string(1000, '0') + "66;&&amp;#x&gt;", "AB&&#x>"},
      {"&;&am;&AMP;&amp&#;&#x;&#-1;&#xg;&#0;", "&;&am;&AMP;&amp&#;&#x;&#-1;&#xg;&#0;"},
      {"&#xD800;&#1114112;&#99999999999;&", "&#xD800;&#1114112;&#99999999999;&"}};
  for (const auto& [text, plain] : cases) {
    EXPECT_EQ(withoutXmlReferences(text), plain) << text;
  }
}

TEST(TalvexAPIService, FollowsTokensInOrder) {
  FaultServer server;
  server.queue(answer(200, entry("<Key>b</Key><ETag>\"1\"</ETag>") + token("t 1/+=&amp;\u00e9;")));
  server.queue(answer(200, token("t 1/+=&amp;\u00e9;")));
  server.queue(answer(200, entry("<Key>a</Key>") + "<IsTruncated>true</IsTruncated>"));
  EXPECT_EQ(list(server, "m d/\u00e9+&=#%?';"), (Pairs{{"b", "1"}, {"a", ""}}));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3U);
  const std::string first =
      "/photos?list-type=2&prefix=m%20d/%C3%A9%2B%26%3D%23%25?';&max-keys=1000";
  EXPECT_EQ(requests[0].method() + " " + requests[0].target(), "GET " + first);
  EXPECT_EQ(requests[0].header("x-amz-content-sha256"),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  for (const auto i : {1U, 2U}) {
    EXPECT_EQ(requests[i].target(), first + "&continuation-token=t%201/%2B%3D%26%C3%A9;");
  }
}

TEST(TalvexAPIService, ReportsEveryFailure) {
  FaultServer server([](const auto&) { return answer(200); });
  EXPECT_EQ(list(server), Pairs());
  const std::string long403 = std::string((1 << 20) - 1, 'x') + "\u00e9";
  const std::pair<testing::Reaction, Error> cases[] = {
      {answer(403, long403),
       {"TalvexAPIService", 403, "ListObjects HTTP 403: " + long403.substr(0, (1 << 20) - 1)}},
      {answer(300), {"TalvexAPIService", 300, "ListObjects HTTP 300: "}},
      {answer(500, "\xff<Error/>"), {"TalvexAPIService", 500, "ListObjects HTTP 500: "}},
      {answer(200, entry("<Key>\xc3(</Key>")),
       {"TalvexAPIService", -1, "Invalid response encoding"}}};
  for (const auto& [reaction, error] : cases) {
    server.queue(answer(200, entry("<Key>lost</Key>") + token("t")));
    server.queue(reaction);
    const auto result = list(server);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error(), error);
  }
  FaultServer resetting([](const auto&) { return testing::resetAfter(0); });
  EXPECT_EQ(list(resetting).error().code(), -1005);
  server.queue({.answer = "HTTP/1.1 200 OK\r\n\r\n" + std::string(100'000, 'x'),
                .end = testing::Reaction::End::repeat});
  EXPECT_EQ(list(server).error().code(), -1103);
  const auto none = TalvexAPIService::shared().listObjects(configFor("http://bad host"), "");
  EXPECT_EQ(none.error().domain(), Error::kUrlLoading);
  EXPECT_EQ(none.error().code(), -1000);
}

}  // namespace
}  // namespace orvane
