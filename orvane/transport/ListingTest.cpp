#include <orvane/transport/Listing.h>

#include <orvane/transport/UnfinishedUploads.h>
#include <orvane/transport/XMLTagParser.h>
#include <orvane/transport/XmlText.h>

#include "support/Dialogue.h"
#include "support/Test.h"

namespace orvane {
namespace {

using Pairs = std::vector<KeyETagPair>;

std::string describe(const Error& error) {
  const auto& text = error.description();
  return std::string(error.domain()) + " " + std::to_string(error.code()) + " " +
         text.substr(0, text.find(" ("));
}

std::string entry(const std::string& content) { return "<Contents>" + content + "</Contents>"; }

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

Reaction toldStore(const RecordedRequest& /*request*/, const std::string& told) {
  return testing::reactionTo(told);
}

TEST(Listing, FollowsTokensInOrderAndReportsEveryFailure) {
  testing::expectDialogues("dialogues/listing.txt", toldStore,
                           [](const auto& /*dialogue*/, const std::string& url) {
                             const auto pairs = TalvexAPIService::shared().listObjects(
                                 configFor("//" + url + "//"), "m d/\u00e9+&=#%?';");
                             if (!pairs) return describe(pairs.error());
                             std::string text;
                             for (const auto& pair : *pairs)
                               text += pair.key + " " + pair.eTag + "; ";
                             return text;
                           });
}

TEST(Listing, KeepsOfAnErrorWhatIsText) {
  FaultServer server;
  const std::string long403 = std::string((1 << 20) - 1, 'x') + "\u00e9";
  const std::pair<Reaction, std::string> cases[] = {
      {answer(403, long403), "403 ListObjects HTTP 403: " + long403.substr(0, (1 << 20) - 1)},
      {answer(500, "\xff<Error/>"), "500 ListObjects HTTP 500: "},
      {answer(200, entry("<Key>\xc3(</Key>")), "-1 Invalid response encoding"}};
  for (const auto& [reaction, error] : cases) {
    server.queue(reaction);
    const auto result = TalvexAPIService::shared().listObjects(configFor(server.url()), "");
    EXPECT_EQ(describe(result.error()), "TalvexAPIService " + error);
  }
  const auto none = TalvexAPIService::shared().listObjects(configFor("http://bad host"), "");
  EXPECT_EQ(none.error().domain(), Error::kUrlLoading);
  EXPECT_EQ(none.error().code(), -1000);
}

TEST(UnfinishedUploads, AreListedPageByPage) {
  testing::expectDialogues(
      "dialogues/unfinished.txt", toldStore, [](const auto& /*dialogue*/, const std::string& url) {
        const auto uploads = listUnfinishedUploads(configFor(url), "p/");
        if (!uploads) return std::string(uploads.error().description());
        std::string text;
        for (const auto& upload : *uploads) {
          const auto begun = std::chrono::floor<std::chrono::seconds>(upload.begun);
          text += upload.key + " " + upload.uploadId + " " +
                  std::to_string(begun.time_since_epoch().count()) + "; ";
        }
        return text;
      });
}

}  // namespace
}  // namespace orvane
