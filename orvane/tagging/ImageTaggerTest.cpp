#include <orvane/tagging/ImageTagger.h>

#include <orvane/platform/host/HostApplication.h>

#include "support/LogLines.h"
#include "support/Test.h"

namespace orvane {
namespace {

namespace asio = boost::asio;
using testing::LogLines;
using Observations = std::vector<ClassificationObservation>;
using Tags = std::vector<TagWithConfidence>;

/// Answers what the test says.
class Scripted final : public ImageClassifier {
 public:
  using Answer = std::function<Result<Observations>(const fs::path&)>;
  explicit Scripted(Answer answer) : answer_(std::move(answer)) {}
  [[nodiscard]] Result<Observations> classify(const fs::path& image) const override {
    return answer_(image);
  }

 private:
  Answer answer_;
};

Tags tagsOf(const ImageTagger& tagger, const fs::path& image = "image.jpg") {
  asio::io_context context;
  auto tags = asio::co_spawn(context, tagger.tagImage(image), asio::use_future);
  context.run();
  return tags.get();
}

constexpr float kThreshold = 0.7F;
constexpr auto kNaN = std::numeric_limits<float>::quiet_NaN();
using Limits = std::numeric_limits<std::int64_t>;

TEST(ImageTagger, TurnsObservationsIntoTags) {
  const struct {
    const char* what;
    Observations observations;
    Tags expected;
    std::int64_t maxTags = 5;
    float minConfidence = kThreshold;
  } cases[] = {
      {"the cap cuts the least confident",
       {{"sky", 0.8F}, {"ocean", 0.85F}, {"beach", 0.95F}, {"sand", 0.9F}},
       {{"spiaggia", 0.95F}, {"sabbia", 0.9F}, {"oceano", 0.85F}},
       3},
      {"fewest", {{"sky", 0.9F}}, {}, Limits::min()},
      {"no cap", {{"sky", 0.9F}}, {{"cielo", 0.9F}}, Limits::max()},
      {"the threshold itself is kept",
       {{"sky", kThreshold}, {"sand", std::nextafter(kThreshold, 0.0F)}, {"sea", 0.69F}},
       {{"cielo", kThreshold}}},
      {"no number is dropped", {{"sky", kNaN}, {"sand", 0.8F}}, {{"sabbia", 0.8F}}, 5, 0},
      {"nothing is below 0", {{"sky", 0}}, {{"cielo", 0}}, 5, 0},
      {"what has no translation takes no place",
       {{"quux", 0.99F}, {"sky", 0.8F}, {"", 0.95F}, {"sand", 0.75F}},
       {{"cielo", 0.8F}, {"sabbia", 0.75F}},
       2},
      {"underscores join words",
       {{"water_body", 0.8F}, {"_sky__", 0.9F}},
       {{"corpo d'acqua", 0.8F}}},
      {"equals keep their order",
       {{"sand", 0.8F}, {"sky", 0.9F}, {"beach", 0.8F}, {"ocean", 0.8F}},
       {{"cielo", 0.9F}, {"sabbia", 0.8F}, {"spiaggia", 0.8F}},
       3},
      {"one name may come twice",
       {{"skateboarding", 0.8F}, {"skateboard", 0.9F}, {"sky", 0.75F}},
       {{"skateboard", 0.9F}, {"skateboard", 0.8F}},
       2},
  };
  for (const auto& c : cases) {
    ImageTagger tagger(std::make_shared<Scripted>([&c](const auto&) { return c.observations; }));
    tagger.maxTags = c.maxTags;
    tagger.minConfidence = c.minConfidence;
    EXPECT_EQ(tagsOf(tagger), c.expected) << c.what;
  }
}

TEST(ImageTagger, AFileThatCannotBeClassifiedGivesOneLine) {
  EXPECT_EQ(ImageTagger::shared().maxTags, 5);
  EXPECT_EQ(ImageTagger::shared().minConfidence, kThreshold);
  LogLines log;
  writeFile(testDirectory() / "text.jpg", "Dear diary");
  for (const auto* name : {"missing.jpg", "text.jpg", "."}) {
    EXPECT_TRUE(tagsOf(ImageTagger::shared(), testDirectory() / name).empty());
    EXPECT_THAT(log.take(), ElementsAre(StartsWith("[ImageTagger] Vision classify failed: ")));
  }
  const ImageTagger failing(std::make_shared<Scripted>([](const auto&) -> Result<Observations> {
    return std::unexpected(Error("Test", 7, "the lens\ncap is on"));
  }));
  const ImageTagger throwing(std::make_shared<Scripted>(
      [](const auto&) -> Result<Observations> { throw std::runtime_error("no film"); }));
  EXPECT_TRUE(tagsOf(failing).empty());
  EXPECT_TRUE(tagsOf(throwing).empty());
  EXPECT_THAT(log.take(), ElementsAre("[ImageTagger] Vision classify failed: the lens cap is on",
                                      "[ImageTagger] Vision classify failed: no film"));
}

/// Needs a process that has not used the engine before, as ctest gives each test.
TEST(ImageTagger, TheSharedOneAsksTheHostsClassifier) {
  fs::path asked;
  ASSERT_TRUE(HostApplication::configure(
      {.imageClassifier = std::make_shared<Scripted>([&](const auto& image) {
         asked = image;
         return Observations{{"sky", 1}};
       })}));
  EXPECT_EQ(tagsOf(ImageTagger::shared(), "/photos/a b.jpg"), (Tags{{"cielo", 1}}));
  EXPECT_EQ(asked, "/photos/a b.jpg");
}

int priorityHere() { return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); }

TEST(ImageTagger, WorksAtALowerPriorityAndNeitherBlocksNorIsCancelled) {
  const int before = priorityHere();
  std::promise<void> release;
  asio::cancellation_signal cancel;
  const ImageTagger tagger(std::make_shared<Scripted>([&](const auto&) {
    EXPECT_EQ(priorityHere(), std::min(before + 10, 19));
    release.get_future().wait();  // The caller's thread has to set it.
    return Observations{{"sky", 1}};
  }));
  asio::io_context context(1);
  auto tags = asio::co_spawn(context, tagger.tagImage("image.jpg"),
                             asio::bind_cancellation_slot(cancel.slot(), asio::use_future));
  asio::post(context, [&] {
    cancel.emit(asio::cancellation_type::all);
    release.set_value();
  });
  context.run();
  EXPECT_EQ(tags.get(), (Tags{{"cielo", 1}}));
  EXPECT_EQ(priorityHere(), before);
}

}  // namespace
}  // namespace orvane
