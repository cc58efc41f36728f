#include <orvane/platform/vision/internal/SceneRules.h>
#include <orvane/tagging/TagLocalization.h>

#include "support/Test.h"

namespace orvane {
namespace {

TEST(SceneLabels, HaveItalianNames) {
  for (const auto label : platform::sceneLabels()) {
    std::string key(label);
    std::ranges::replace(key, '_', ' ');
    const auto name = TagLocalization::italianName(key);
    ASSERT_TRUE(name) << label;
    // A label of several words needs an entry of its own, or it is translated word by word.
    if (key.contains(' ')) {
      EXPECT_EQ(name, "cielo azzurro") << label;
    }
  }
}

}  // namespace
}  // namespace orvane
