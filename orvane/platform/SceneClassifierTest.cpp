#include <gtest/gtest.h>
#include <orvane/platform/SceneClassifier.h>
#include <orvane/platform/internal/SceneRules.h>
#include <orvane/platform/internal/VipsHandle.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>

#include "support/SceneImages.h"
#include "support/TemporaryDirectory.h"

namespace orvane {
namespace {

using platform::RgbImage;
using testing::SceneKind;
using testing::testDirectory;
using Observations = std::vector<ClassificationObservation>;

/// From here on, an observation becomes a tag.
constexpr float kSure = 0.7F;
/// The rules were tuned on the pictures of smaller seeds.
constexpr std::uint32_t kFirstUnseen = 20000;

Observations look(const RgbImage& image) {
  const auto features = platform::measureScene(image);
  return features ? platform::recogniseScenes(*features) : Observations{};
}

bool isSureOf(const Observations& observations, std::string_view label) {
  return std::ranges::any_of(observations, [&](const auto& observation) {
    return observation.identifier == label && observation.confidence >= kSure;
  });
}

bool holds(const std::vector<std::string_view>& labels, std::string_view label) {
  return std::ranges::find(labels, label) != labels.end();
}

TEST(SceneClassifier, IsSureOfNothingWhereThereIsNoScene) {
  for (const auto& kind : testing::distractors()) {
    for (auto seed = kFirstUnseen; seed < kFirstUnseen + 50; ++seed) {
      for (const auto& [label, confidence] : look(testing::paint(kind, seed)))
        EXPECT_LT(confidence, kSure) << label << " in " << kind.name << " " << seed;
    }
  }
}

struct Score {
  int right = 0;
  int wrong = 0;
  int missed = 0;
  [[nodiscard]] double precision() const { return 1.0 * right / (right + wrong); }
  [[nodiscard]] double recall() const { return 1.0 * right / (right + missed); }
};

void count(const SceneKind& kind, const Observations& observations,
           std::map<std::string_view, Score>& scores) {
  for (const auto label : platform::sceneLabels()) {
    const bool shown = holds(kind.shows, label);
    if (!isSureOf(observations, label))
      scores[label].missed += shown;
    else if (shown)
      ++scores[label].right;
    else
      scores[label].wrong += !holds(kind.maySay, label);
  }
}

TEST(SceneClassifier, NamesScenesThatItWasNotTunedOn) {
  std::map<std::string_view, Score> scores;
  for (const auto& kind : testing::scenes()) {
    for (auto seed = kFirstUnseen; seed < kFirstUnseen + 30; ++seed) {
      const auto observations = look(testing::paint(kind, seed));
      EXPECT_TRUE(std::ranges::is_sorted(observations, std::ranges::greater{},
                                         &ClassificationObservation::confidence));
      for (const auto& [label, confidence] : observations)
        EXPECT_TRUE(confidence > 0 && confidence <= 1) << label << confidence;
      count(kind, observations, scores);
    }
  }
  const std::map<std::string_view, double> leastRecall{
      {"sky", .7},        {"blue_sky", .65},      {"clouds", .4},
      {"outdoor", .7},    {"grass", .8},          {"snow", .65},
      {"sea", .55},       {"night_sky", .75},     {"sunset_sunrise", .7},
      {"vegetation", .5}, {"black_and_white", .7}};
  for (const auto& [label, score] : scores) {
    std::printf("%-16.*s precision %.3f recall %.3f (right %d, wrong %d, missed %d)\n",
                static_cast<int>(label.size()), label.data(), score.precision(), score.recall(),
                score.right, score.wrong, score.missed);
    EXPECT_GE(score.precision(), .95) << label;
    EXPECT_GE(score.recall(), leastRecall.at(label)) << label;
  }
}

TEST(SceneClassifier, IsSilentOnTheTinyAndTheNarrow) {
  constexpr int kSizes[][2] = {{1, 1}, {1, 192}, {192, 1}, {47, 192}, {192, 47}, {2, 3}, {40, 40}};
  for (const auto& [width, height] : kSizes) {
    RgbImage image{.width = width, .height = height, .pixels = {}};
    for (int i = 0; i < width * height * 3; ++i)
      image.pixels.push_back(static_cast<std::uint8_t>(i * 7));
    EXPECT_TRUE(look(image).empty()) << width << "x" << height;
  }
}

/// Writes the picture three times as large, as a camera would.
bool save(const RgbImage& picture, const std::filesystem::path& file) {
  using platform::operate;
  using Image = platform::VipsHandle<VipsImage>;
  vips_init("test");
  const Image small(vips_image_new_from_memory_copy(picture.pixels.data(), picture.pixels.size(),
                                                    picture.width, picture.height, 3,
                                                    VIPS_FORMAT_UCHAR));
  const Image meant = operate(small, vips_copy, "interpretation", VIPS_INTERPRETATION_sRGB);
  const Image large = operate(meant, vips_resize, 3.0);
  return large && vips_image_write_to_file(large.get(), file.c_str(), nullptr) == 0;
}

TEST(SceneClassifier, LooksAtFiles) {
  const SceneClassifier classifier;
  for (const std::string_view name :
       {"meadow", "sunset at sea", "starry night", "grey landscape"}) {
    const auto kinds = testing::scenes();
    const auto kind = std::ranges::find(kinds, name, &SceneKind::name);
    ASSERT_NE(kind, kinds.end());
    for (const std::string ending : {".jpg", ".png"}) {
      const auto file = testDirectory() / (std::string(name) + ending);
      ASSERT_TRUE(save(testing::paint(*kind, 7), file));
      const auto observations = classifier.classify(file);
      ASSERT_TRUE(observations) << observations.error().description();
      EXPECT_TRUE(isSureOf(*observations, kind->shows.front())) << file;
    }
  }
}

TEST(SceneClassifier, ReportsWhatIsNoImage) {
  const SceneClassifier classifier;
  const auto file = testDirectory() / "text.jpg";
  std::ofstream(file) << "no image";
  EXPECT_FALSE(classifier.classify(file));
  EXPECT_FALSE(classifier.classify(testDirectory() / "none.jpg"));
}

}  // namespace
}  // namespace orvane
