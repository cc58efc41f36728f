#include <gtest/gtest.h>
#include <orvane/bookkeeping/internal/RecordMap.h>
#include <orvane/bookkeeping/internal/UploadRecordJson.h>

#include <map>
#include <random>
#include <string>

namespace orvane::internal {
namespace {

using Records = RecordMap<UploadRecord, UploadRecordJson>;
using Model = std::map<std::string, std::int64_t>;

UploadRecord recordOf(const std::string& id, std::int64_t retries) {
  return {id, "f", UploadStatus::failed, 0, 0, {}, {}, false, retries};
}

Model modelOf(const Records& records) {
  Model model;
  records.forEach(
      [&](const UploadRecord& r) { EXPECT_TRUE(model.emplace(r.id(), r.retryCount).second); });
  return model;
}

std::string written(Records& records) {
  EXPECT_TRUE(records.encodeAll());
  std::string text;
  EXPECT_TRUE(records.write([&text](std::string_view part) {
    text += part;
    return true;
  }));
  return text;
}

TEST(RecordMapTest, DoesWhatAPlainMapDoes) {
  std::mt19937 random(7);
  Records records;
  Model model;
  for (int step = 0; step < 4000; ++step) {
    // Long identifiers too, which lie outside their string.
    const auto number = random() % 60;
    const auto id = std::to_string(number) + std::string(number % 2 * 30, 'x');
    switch (random() % 4) {
      case 0:
      case 1:
        records.put(id, recordOf(id, step));
        model[id] = step;
        break;
      case 2:
        records.remove(id);
        model.erase(id);
        break;
      default:
        EXPECT_EQ(records.update(id, [](UploadRecord& r) { ++r.retryCount; }), model.contains(id));
        if (model.contains(id)) ++model[id];
    }
    ASSERT_EQ(records.find(id) != nullptr, model.contains(id));
    ASSERT_EQ(records.size(), model.size());
    if (step % 10 != 0) continue;
    ASSERT_EQ(modelOf(records), model);
    auto decoded = Records::decode(simdjson::padded_string(written(records)));
    ASSERT_TRUE(decoded);
    ASSERT_EQ(modelOf(*decoded), model);
    if (step % 100 == 0) records = std::move(*decoded);
  }
}

TEST(RecordMapTest, OfManyEqualKeysTheLastCounts) {
  std::mt19937 random(11);
  Model model;
  std::string text;
  for (int i = 0; i < 500; ++i) {
    const auto id = std::to_string(random() % 90);
    const auto key =
        i % 3 == 0 ? "\\u003" + id : id;  // The first digit as another writer may have it.
    text += (i == 0 ? "{\"" : ",\"") + key + "\":" + recordOf(id, i).encodeJson().value();
    model[id] = i;
  }
  auto records = Records::decode(simdjson::padded_string(text + "}"));
  ASSERT_TRUE(records);
  EXPECT_EQ(modelOf(*records), model);
  for (const auto& [id, retries] : model) EXPECT_EQ(records->find(id)->retryCount, retries);
  EXPECT_EQ(modelOf(Records::decode(simdjson::padded_string(written(*records))).value()), model);
}

}  // namespace
}  // namespace orvane::internal
