#include <orvane/tagsync/internal/TagObject.h>

#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/internal/TagExchange.h>
#include <orvane/tagsync/internal/TagListing.h>

#include "support/MemoryGrowth.h"
#include "support/Test.h"

namespace orvane::tagsync {
namespace {

using Tags = std::vector<TagWithConfidence>;

std::vector<TagLine> linesOf(std::string body) {
  TagObjectReader reader(std::move(body));
  std::vector<TagLine> lines;
  for (TagLine line; reader.next(line);) lines.push_back(line);
  return lines;
}

/// What is read from a line whose other members are right.
TagLine lineWith(const std::string& member) {
  const auto lines = linesOf(member);
  EXPECT_EQ(lines.size(), 1U) << member;
  return lines.empty() ? TagLine() : lines.front();
}

std::string textOfObject(TagObjectWriter& writer) { return std::string(textOf(writer.takeBody())); }

TEST(TagObject, IsWrittenAsCompactLines) {
  TagObjectWriter writer(1'732'320'000'123);
  writer.append("A/1", {{"mare", 0.5}, {"citt\u00e0 \"x\"\\\n", 1}}, "media/a.jpg");
  writer.append("B", {}, "");
  EXPECT_EQ(textOfObject(writer),
            R"({"asset_id":"A/1","tags":[{"tag":"mare","confidence":0.5},)"
            R"({"tag":"città \"x\"\\\n","confidence":1}],"version":1,"ts":1732320000123,)"
            R"("s3_key":"media/a.jpg"})"
            "\n"
            R"({"asset_id":"B","tags":[],"version":1,"ts":1732320000123})"
            "\n");
}

TEST(TagObject, LeavesOutAssetsWithoutJsonForm) {
  TagObjectWriter writer(7);
  const Tags fine = {{"mare", 0.5}};
  writer.append("\xff", fine, "k");
  writer.append("A", {{"mare", 0.5}, {"\xed\xa0\x80", 0.5}}, "k");
  writer.append("A", {{"mare", std::nan("")}}, "k");
  writer.append("A", {{"mare", std::numeric_limits<double>::infinity()}}, "k");
  writer.append("A", fine, "\xc3");
  EXPECT_EQ(textOfObject(writer), "");
  writer.append("A", fine, "");
  EXPECT_EQ(linesOf(textOfObject(writer)).at(0).tags, fine);
}

TEST(TagObject, IsReadAsItWasWritten) {
  const std::string odd = "0123456789012345678901234567\0\x01\x1f\x7f\"\\/\u2028\U0001F600"s;
  const Tags tags = {{odd, 0.1}, {"", 1.0 / 3}, {std::string(100'000, 'x'), 5e-324}, {"t", -0.0}};
  TagObjectWriter writer(std::numeric_limits<std::int64_t>::min());
  writer.append(odd, tags, odd);
  const auto line = lineWith(textOfObject(writer));
  EXPECT_EQ(line.assetId, odd);
  EXPECT_EQ(line.s3Key, odd);
  EXPECT_EQ(line.tags, tags);
  EXPECT_EQ(line.ts, std::numeric_limits<std::int64_t>::min());
}

TEST(TagObject, ReadsMembersOfTheRightTypeOnly) {
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  const std::pair<std::string, std::optional<std::int64_t>> timestamps[] = {
      {"5", 5},      {"50e-1", 5},  {"-3", -3},    {"9223372036854775807", kMost},
      {"1e300", {}}, {"1e400", {}}, {"5.5", {}},   {"9223372036854775808", {}},
      {"true", {}},  {"null", {}},  {"\"5\"", {}}, {"[5]", {}}};
  for (const auto& [ts, value] : timestamps) {
    const auto line = lineWith(R"({"ts":)" + ts + R"(,"s3_key":"k"})");
    EXPECT_EQ(line.ts, value) << ts;
    EXPECT_EQ(line.s3Key, "k") << ts;
  }
  const std::pair<std::string, std::optional<Tags>> lists[] = {
      {"[]", Tags()},
      {R"([{"confidence":1,"tag":"a","x":[{}]},{"tag":"b","confidence":-2e0}])",
       Tags{{"a", 1}, {"b", -2}}},
      {R"([{},{"tag":"a"},{"confidence":1},{"tag":"b","confidence":1}])", Tags{{"b", 1}}},
      {R"([{"tag":1,"confidence":1},{"tag":"a","confidence":"1"}])", Tags()},
      {R"([{"tag":"a","confidence":true},{"tag":"b","confidence":null}])", Tags()},
      {R"([{"tag":"a","confidence":1e400},{"tag":"b","confidence":1e-400}])", Tags{{"b", 0}}},
      {R"([{"tag":"a","confidence":12345678901234567890123}])",
       Tags{{"a", 12345678901234567890123.0}}},
      {R"([{"tag":"a","confidence":1},1])", {}},
      {R"([[]])", {}},
      {R"({"tag":"a","confidence":1})", {}},
      {"null", {}}};
  for (const auto& [tags, value] : lists) {
    const auto line = lineWith(R"({"tags":)" + tags + R"(,"asset_id":"A"})");
    EXPECT_EQ(line.tags, value) << tags;
    EXPECT_EQ(line.assetId, "A") << tags;
  }
  EXPECT_EQ(lineWith(R"({"asset_id":1,"s3_key":null})").assetId, std::nullopt);
  EXPECT_EQ(lineWith(R"({"asset_id":1,"s3_key":null})").s3Key, std::nullopt);
}

TEST(TagObject, TheLastOfRepeatedMembersCounts) {
  EXPECT_EQ(lineWith(R"({"ts":1,"ts":2})").ts, 2);
  EXPECT_EQ(lineWith(R"({"ts":"x","\u0074s":2})").ts, 2);
  EXPECT_EQ(lineWith(R"({"ts":1,"ts":"x"})").ts, std::nullopt);
  EXPECT_EQ(lineWith(R"({"tags":[{}],"tags":{}})").tags, std::nullopt);
  EXPECT_EQ(lineWith(R"({"tags":1,"tags":[{"tag":"a","tag":"b","confidence":1}]})").tags,
            (Tags{{"b", 1}}));
}

TEST(TagObject, SkipsLinesThatAreNoJsonObject) {
  const std::string good = R"({"asset_id":"A"})";
  std::istringstream lines(readFile(ORVANE_REFUSED_LINES));
  std::vector<std::string> bad = {R"({"x":)" + std::string(100'000, '[') + "}",
                                  R"({"tags":)" + std::string(100'000, '['),
                                  R"({"x":)" + std::string(600, '[') + std::string(600, ']') + "}"};
  for (std::string line; std::getline(lines, line);) bad.push_back(line);
  EXPECT_GT(bad.size(), 15U);
  for (const auto& line : bad) {
    EXPECT_EQ(linesOf(line).size(), 0U) << line.substr(0, 80);
    const auto among = "\n" + good + "\n" + line + "\n\n" + good;
    EXPECT_EQ(linesOf(among).size(), 2U) << line.substr(0, 80);
  }
  EXPECT_EQ(linesOf("\xef\xbb\xbf { } \r\n\xef\xbb\xbf{}\n").size(), 2U);
  EXPECT_FALSE(TagObjectReader("{}\n\xff").isUtf8());
  EXPECT_TRUE(TagObjectReader("{}\n\u00e8").isUtf8());
}

constexpr std::size_t kLarge = 100'000'000;
constexpr std::size_t kMerged = 10'000'000;  ///< Every tag has to be written.

/// `begin`, as often as it fits `piece`, and `end`.
struct LargeObject {
  std::string begin;
  std::string piece;
  std::string end;
  std::int64_t count;  ///< Of lines; of tags, if it is merged.
  std::size_t size = kLarge;

  [[nodiscard]] std::string text() const {
    auto text = begin;
    text.reserve(size + end.size());
    while (text.size() + piece.size() <= size) text += piece;
    return text += end;
  }
};

const LargeObject kLargeObjects[] = {
    {"", "{\"asset_id\":\"A\"}\n", "", kLarge / 17},
    {"", "\n", "", 0},
    {R"({"asset_id":")", "\\n", R"("})", 1},
    {"", "[", "", 0},
    {R"({"tags":[0)", ",0", "]}", 1},
    {R"({"tags":[{})", R"(,{"tag":"","confidence":0})", "]}", 1},
    {R"({"tags":[])", R"(,"tags":[{"tag":"abc","confidence":0}])", "}", 1},
    {"", "{\"s3_key\":\"k\",\"tags\":[{\"tag\":\"mare\",\"confidence\":1}]}\n", "", kMerged / 54,
     kMerged},
    {R"({"s3_key":"k","tags":[{})", R"(,{"tag":"","confidence":0})", "]}", (kMerged - 24) / 26,
     kMerged},
    {R"({"s3_key":"k","tags":[{"confidence":1,"tag":")", "x", R"("}]})", 1, kMerged}};

/// Prints by how many KiB memory grows, and the lines of the object or the tags merged from it.
const testing::ChildMain kReadLarge("readLarge", [](const auto& arguments) {
  if (!TagDatabase::shared().initialize()) return 1;
  const auto& object = kLargeObjects[std::stoul(arguments.at(0))];
  auto body = object.text();
  const testing::MemoryGrowth growth;
  TagObjectReader reader(std::move(body));
  if (!reader.isUtf8()) return 1;
  std::int64_t count = 0;
  if (object.size == kMerged) {
    count = mergeTags(reader, TagDatabase::shared(), "U", {{"k", "mine"}});
  } else {
    for (TagLine line; reader.next(line);) ++count;
  }
  std::cout << growth.kibibytes() << ' ' << count << '\n';
  return 0;
});

TEST(TagObject, LargeObjectsTakeMemoryInProportion) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP() << "sanitizers keep memory of their own";
  for (std::size_t i = 0; i < std::size(kLargeObjects); ++i) {
    const auto& object = kLargeObjects[i];
    std::istringstream output(testing::outputOfChild("readLarge", {std::to_string(i)}));
    std::size_t growth = 0;
    std::int64_t count = 0;
    output >> growth >> count;
    EXPECT_EQ(count, object.count) << object.begin << object.piece;
    EXPECT_LT(growth, 5 * object.size / 1024) << object.begin << object.piece;
  }
}

TEST(TagListing, FindsTheTagObjects) {
  const auto entry = [](const std::string& inner) { return "<Contents>" + inner + "</Contents>"; };
  const auto files = [](const std::string& text) { return tagFilesInListing(text, "p/tags/"); };
  const std::string key = "<Key>p/tags/U/tags.jsonl</Key>";
  const std::pair<std::string, std::vector<RemoteTagFile>> cases[] = {
      {entry(key + "<ETag>&quot;abc&quot;</ETag>"), {{"U", "abc"}}},
      {entry(R"(<ETag>""a"b"</ETag>)" + key), {{"U", "a\"b"}}},
      {entry(key + "</ETag><ETag>x"), {{"U", ""}}},
      {entry(key + "</ETag><ETag>x</ETag>"), {{"U", "x"}}},
      {"<Key>p/tags/V/tags.jsonl</Key>" + entry(key) + entry(key) + "<Contents>" + key,
       {{"U", ""}, {"U", ""}}},
      {entry("<Key>p/tags/a&amp;b&quot;/tags.jsonl</Key>"), {{"a&amp;b&quot;", ""}}},
      {entry("</Key>" + key), {{"U", ""}}},
      {entry("<Key>p/tags/U/tags.jsonl"), {}},
      {entry("<key>p/tags/U/tags.jsonl</key>"), {}},
      {entry("<Key>p/tags/A/B/tags.jsonl</Key>"), {}},
      {entry("<Key>p/tags//tags.jsonl</Key>"), {}},
      {entry("<Key>p/tags/tags.jsonl</Key>"), {}},
      {entry("<Key>p/tags/U/tags.jsonl.bak</Key>"), {}},
      {entry("<Key>x/p/tags/U/tags.jsonl</Key>"), {}},
      {entry("<Key/>") + entry("") + entry(key), {{"U", ""}}},
      {"</Contents><Contents>" + entry(key), {{"U", ""}}},
      {"<Contents", {}}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(files(text), expected) << text;
  std::string hostile;
  for (int i = 0; i < 1'000'000; ++i) hostile += "<Contents><Key>";
  EXPECT_THAT(files(hostile), IsEmpty());
}

}  // namespace
}  // namespace orvane::tagsync
