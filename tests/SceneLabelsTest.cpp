#include <gtest/gtest.h>
#include <orvane/platform/internal/SceneRules.h>
#include <orvane/tagging/TagLocalization.h>

#include <algorithm>
#include <map>
#include <string>

namespace orvane {
namespace {

TEST(SceneLabels, HaveItalianNames) {
  // A label of several words needs an entry of its own, or it is translated word by word.
  const std::map<std::string, std::string> phrases{{"blue sky", "cielo azzurro"},
                                                   {"night sky", "cielo notturno"},
                                                   {"sunset sunrise", "tramonto e alba"},
                                                   {"black and white", "bianco e nero"}};
  for (const auto label : platform::sceneLabels()) {
    std::string key(label);
    std::ranges::replace(key, '_', ' ');
    const auto name = TagLocalization::italianName(key);
    ASSERT_TRUE(name) << label;
    if (!key.contains(' ')) continue;
    ASSERT_TRUE(phrases.contains(key)) << label;
    EXPECT_EQ(name->text(), phrases.at(key));
  }
}

}  // namespace
}  // namespace orvane
