#include <orvane/tagsync/internal/TagObject.h>

#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/internal/TagExchange.h>
#include <orvane/tagsync/internal/TagListing.h>

#include "support/MemoryGrowth.h"
#include "support/Test.h"

namespace orvane::tagsync {
namespace {

using Tags = std::vector<TagWithConfidence>;

std::ifstream jsonFile(const std::string& name) {
  return std::ifstream(fs::path(ORVANE_JSON_FILES) / name);
}

std::size_t linesIn(std::string body) {
  TagObjectReader reader(std::move(body));
  std::size_t count = 0;
  for (TagLine line; reader.next(line);) ++count;
  return count;
}

/// The object of one line as it is written again; "incomplete" when the line lacks a member.
std::string rewritten(std::string text) {
  TagObjectReader reader(std::move(text));
  TagLine line;
  if (!reader.next(line)) return "refused";
  if (!line.assetId || !line.tags || !line.ts) return "incomplete";
  TagObjectWriter writer(*line.ts);
  writer.append(*line.assetId, *line.tags, line.s3Key.value_or(""));
  return std::string(textOf(writer.takeBody()));
}

/// Each second line of the file is what the line before it is written as.
TEST(TagObject, ALineIsWrittenAsItWasRead) {
  auto lines = jsonFile("read-tag-lines.txt");
  std::size_t count = 0;
  for (std::string read, written; std::getline(lines, read) && std::getline(lines, written);) {
    if (written != "incomplete") written += '\n';
    EXPECT_EQ(rewritten(read), written) << read;
    ++count;
  }
  EXPECT_GT(count, 30U);
}

TEST(TagObject, LeavesOutAssetsWithoutJsonForm) {
  TagObjectWriter writer(7);
  const Tags fine = {{"mare", 0.5}};
  writer.append("\xff", fine, "k");
  writer.append("A", {{"mare", 0.5}, {"\xed\xa0\x80", 0.5}}, "k");
  writer.append("A", {{"mare", std::nan("")}}, "k");
  writer.append("A", fine, "\xc3");
  writer.append("A", fine, "");
  EXPECT_EQ(textOf(writer.takeBody()),
            R"({"asset_id":"A","tags":[{"tag":"mare","confidence":0.5}],"version":1,"ts":7})"
            "\n");
}

TEST(TagObject, SkipsLinesThatAreNoJsonObject) {
  auto lines = jsonFile("refused-tag-lines.txt");
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_EQ(linesIn(line), 0U) << line;
    EXPECT_EQ(linesIn("\n{}\n" + line + "\n\n{}"), 2U) << line;
  }
  EXPECT_GE(count, 15U);
  EXPECT_FALSE(TagObjectReader("{}\n\xff").isUtf8());
  EXPECT_TRUE(TagObjectReader("{}\n\u00e8").isUtf8());
}

/// `begin`, as often as `piece` fits 10 MB, and `end`; read and merged they make `tags` tags.
struct LargeObject {
  std::string begin;
  std::string piece;
  std::string end;
  std::int64_t tags;
};

constexpr std::size_t kLarge = 10'000'000;
const LargeObject kLargeObjects[] = {
    {"", "\n", "", 0},
    {"", "[", "", 0},
    {R"({"s3_key":"k","tags":[0)", ",0", "]}", 0},
    {R"({"s3_key":"k","tags":[])", R"(,"tags":[{"tag":"abc","confidence":0}])", "}", 1},
    {"", "{\"s3_key\":\"k\",\"tags\":[{\"tag\":\"mare\",\"confidence\":1}]}\n", "", kLarge / 54},
    {R"({"s3_key":"k","tags":[{})", R"(,{"tag":"","confidence":0})", "]}", (kLarge - 24) / 26},
    {R"({"s3_key":"k","tags":[{"confidence":1,"tag":")", "x", R"("}]})", 1}};

/// Prints by how many KiB memory grows, and the tags merged from the object.
const ChildMain kMergeLarge("mergeLarge", [](const auto& arguments) {
  const auto& object = kLargeObjects[std::stoul(arguments.at(0))];
  auto body = object.begin;
  while (body.size() + object.piece.size() <= kLarge) body += object.piece;
  body += object.end;
  if (!TagDatabase::shared().initialize()) return 1;
  const testing::MemoryGrowth growth;
  TagObjectReader reader(std::move(body));
  const auto tags = mergeTags(reader, TagDatabase::shared(), "U", {{"k", "mine"}});
  std::cout << growth.kibibytes() << ' ' << tags << '\n';
  return 0;
});

TEST(TagObject, LargeObjectsTakeMemoryInProportion) {
  if (!testing::kMemoryIsTheProgramsOwn) GTEST_SKIP() << "sanitizers keep memory of their own";
  for (std::size_t i = 0; i < std::size(kLargeObjects); ++i) {
    std::istringstream output(outputOfChild("mergeLarge", {std::to_string(i)}));
    std::size_t growth = 0;
    std::int64_t tags = 0;
    output >> growth >> tags;
    EXPECT_EQ(tags, kLargeObjects[i].tags) << kLargeObjects[i].piece;
    EXPECT_LT(growth, 5 * kLarge / 1024) << kLargeObjects[i].piece;
  }
}

/// Each second line of the file is what is found in the listing before it.
TEST(TagListing, FindsTheTagObjects) {
  const auto found = [](const std::string& text) {
    std::string files;
    for (const auto& file : tagFilesInListing(text, "p/tags/")) {
      files += file.uuid + " " + file.eTag + ";";
    }
    return files;
  };
  auto lines = jsonFile("../dialogues/tag-listings.txt");
  int count = 0;
  for (std::string text, files; std::getline(lines, text) && std::getline(lines, files); ++count) {
    EXPECT_EQ(found(text), files) << text;
  }
  EXPECT_EQ(count, 15);
  std::string hostile;
  for (int i = 0; i < 1'000'000; ++i) hostile += "<Contents><Key>";
  EXPECT_EQ(found(hostile), "");
}

}  // namespace
}  // namespace orvane::tagsync
