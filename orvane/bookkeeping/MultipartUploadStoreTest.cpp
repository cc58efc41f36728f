#include <orvane/bookkeeping/MultipartUploadStore.h>

#include "support/Test.h"

namespace orvane {
namespace {

using Sizes = std::map<std::string, std::int64_t>;

const std::string kPlain =
    R"({"assetId":"A","uploadId":"2~u","key":"media/a","contentType":"image/heic","totalParts":3,)"
    R"("fileSize":9000000000,"completedParts":{}})";

MultipartUploadStore& store() { return MultipartUploadStore::shared(); }

fs::path file() {
  return testDirectory() /
         "data/org.orvane.engine/Application Support/multipart_upload_states_v1.json";
}

MultipartState plain() { return {"A", "2~u", "media/a", "image/heic", 3, 9'000'000'000, {}}; }

MultipartState rich() {
  return {"\"A\"\n", "\x1a", "citt\u00e0/\\", "", -1, INT64_MIN, {{"1", "\"e\""}, {"10", ""}}};
}

/// Says how many states the store holds in a new process and how many of them are the above.
const ChildMain kReader("multipart-store-reader", [](const auto&) {
  const int known = (store().state("A") == plain()) + (store().state(rich().assetId()) == rich());
  std::cout << store().allStates().size() << " " << known;
  return 0;
});

TEST(MultipartUploadStoreTest, KeepsStatesUntilTheyAreRemoved) {
  EXPECT_EQ(store().state("A"), std::nullopt);
  auto earlier = plain();
  earlier.completedParts = {{"1", "e1"}, {"2", "e2"}};
  store().save(earlier);
  store().save(plain());
  store().save(rich());
  EXPECT_THAT(store().allStates(), UnorderedElementsAre(plain(), rich()));
  EXPECT_EQ(outputOfChild("multipart-store-reader"), "2 2");
  store().remove(rich().assetId());
  EXPECT_EQ(store().state(rich().assetId()), std::nullopt);
  fs::remove(file());
  store().remove("unknown");
  EXPECT_EQ(store().state("A"), plain());
  EXPECT_EQ(readFile(file()), R"({"A":)" + kPlain + "}");
  store().removeAll();
  EXPECT_THAT(store().allStates(), IsEmpty());
  EXPECT_EQ(readFile(file()), "{}");
  store().resetForTesting();
  EXPECT_FALSE(fs::exists(file()));
}

/// Of each two lines, the second is a file and the first what the reader says about it.
TEST(MultipartUploadStoreTest, LoadsWholeFilesOnlyAndOfEqualNamesTheLast) {
  std::ifstream lines(fs::path(ORVANE_JSON_FILES) / "multipart-files.txt");
  int count = 0;
  for (std::string said, text; std::getline(lines, said) && std::getline(lines, text); ++count) {
    writeFile(file(), text);
    EXPECT_EQ(outputOfChild("multipart-store-reader"), said) << text;
    EXPECT_EQ(readFile(file()), text);
  }
  EXPECT_EQ(count, 11);
}

std::string textOf(const Sizes& sizes) {
  std::string text;
  for (const auto& [id, size] : sizes) text += id + ' ' + std::to_string(size) + ' ';
  return text;
}

Sizes sizesInStore() {
  Sizes sizes;
  const auto states = store().allStates();
  for (const auto& state : states) sizes[state.assetId()] = state.fileSize();
  EXPECT_EQ(sizes.size(), states.size());
  return sizes;
}

/// Says what the store holds, makes random changes in it and in a plain map, and says what the map
/// holds then.
const ChildMain kRandom("multipart-store-random", [](const auto& arguments) {
  std::mt19937 random(static_cast<unsigned>(std::stoul(arguments.at(0))));
  auto model = sizesInStore();
  std::cout << textOf(model) << '\n';
  for (int step = 0; step < 250; ++step) {
    const auto number = random() % 60;
    // Long identifiers too, which lie outside their string.
    const auto id = std::to_string(number) + std::string(number % 2 * 30, 'x');
    if (random() % 5 < 2) {
      store().remove(id);
      model.erase(id);
    } else {
      store().save({id, "", "", "", 0, step, {}});
      model[id] = step;
    }
    if (store().state(id).has_value() != model.contains(id)) return 1;
    if (step % 10 == 0 && sizesInStore() != model) return 1;
  }
  const auto text = readFile(file());
  if (std::ranges::count(text, '{') != 2 * std::ssize(model) + 1) return 2;
  std::cout << textOf(model) << '\n';
  return 0;
});

TEST(MultipartUploadStoreTest, DoesWhatAPlainMapDoesAcrossRestarts) {
  std::optional<std::string> expected = "";
  for (int restart = 0; restart < 12; ++restart) {
    auto child = ChildProcess::run("multipart-store-random", {std::to_string(restart)});
    EXPECT_EQ(child.readLine(), expected);
    expected = child.readLine();
    ASSERT_EQ(child.wait(), 0) << "restart " << restart;
  }
}

}  // namespace
}  // namespace orvane
