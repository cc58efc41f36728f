#include "support/ObjectStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvane::testing {
namespace {

TEST(ObjectStoreTest, ShowsWhatIsStored) {
  const ObjectStore store;
  const std::string key = store.prefix() + "a//b + %2F \"\xC3\xA9\"\n/";
  const std::string content("\0\r\n\xFF", 4);
  store.put(key, content, "image/x-test");

  EXPECT_EQ(store.get(key), content);
  const StoredObject listed{key, 4, "\"80eab51f8f50d35fe66bcf8f688ffedf\"", ""};
  EXPECT_THAT(store.list(store.prefix()), ::testing::ElementsAre(listed));
  StoredObject full = listed;
  full.contentType = "image/x-test";
  EXPECT_EQ(store.head(key), full);

  store.remove(key);
  EXPECT_EQ(store.get(key), std::nullopt);
  EXPECT_EQ(store.head(key), std::nullopt);
  EXPECT_THAT(store.list(store.prefix()), ::testing::IsEmpty());
  EXPECT_THAT(store.unfinishedUploads(store.prefix()), ::testing::IsEmpty());
}

}  // namespace
}  // namespace orvane::testing
