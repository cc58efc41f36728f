#include <orvane/platform/vision/SceneClassifier.h>

#include <orvane/platform/vision/internal/SceneFeatures.h>

#include "support/Test.h"

namespace orvane {
namespace {

/// What the classifier is sure of: from 0.7 on, an observation becomes a tag.
std::set<std::string> labelsOf(const std::filesystem::path& photo) {
  const auto observations = SceneClassifier().classify(photo);
  if (!observations) return {observations.error().description()};
  EXPECT_TRUE(std::ranges::is_sorted(*observations, std::ranges::greater{},
                                     &ClassificationObservation::confidence));
  std::set<std::string> labels;
  for (const auto& [label, confidence] : *observations) {
    EXPECT_TRUE(confidence > 0 && confidence <= 1) << label << ' ' << confidence;
    if (confidence >= 0.7F) labels.insert(label);
  }
  return labels;
}

/// Without any of the rules' conditions, some picture of the list would get a label too many.
TEST(SceneClassifier, SeesInPhotographsWhatTheyShow) {
  std::ifstream list(testing::photoFolder() / "labels.txt");
  int photos = 0;
  for (std::string line; std::getline(list, line); ++photos) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    std::set<std::string> shown;
    for (std::string label; words >> label;) shown.insert(label);
    EXPECT_EQ(labelsOf(testing::photoFolder() / name), shown) << name;
  }
  EXPECT_EQ(photos, 25);
}

TEST(SceneClassifier, IsSilentOnTheTinyAndTheNarrow) {
  constexpr int kSizes[][2] = {{1, 1}, {1, 192}, {192, 1}, {47, 192}, {192, 47}, {2, 3}, {40, 40}};
  for (const auto& [width, height] : kSizes) {
    platform::RgbImage image{.width = width, .height = height, .pixels = {}};
    image.pixels.resize(static_cast<std::size_t>(3 * width * height), 180);
    EXPECT_FALSE(platform::measureScene(image)) << width << "x" << height;
  }
}

TEST(SceneClassifier, ReportsWhatIsNoImage) {
  for (const auto* name : {"images/text.jpg", "images/missing.jpg"}) {
    EXPECT_FALSE(SceneClassifier().classify(testData(name))) << name;
  }
}

}  // namespace
}  // namespace orvane
