#include <gtest/gtest.h>
#include <orvane/platform/internal/SceneRules.h>
#include <orvane/tagging/TagLocalization.h>

#include <algorithm>
#include <string>

namespace orvane {
namespace {

TEST(SceneLabels, HaveItalianNamesOfTheirOwn) {
  for (const auto label : platform::sceneLabels()) {
    std::string key(label);
    std::ranges::replace(key, '_', ' ');
    const auto name = TagLocalization::italianName(key);
    ASSERT_TRUE(name) << label;
    // A name put together from words would hold a word for each of them.
    EXPECT_FALSE(name->text().empty()) << label;
  }
}

}  // namespace
}  // namespace orvane
