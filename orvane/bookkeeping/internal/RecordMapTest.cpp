#include <orvane/bookkeeping/internal/RecordMap.h>

#include <orvane/bookkeeping/internal/UploadRecordJson.h>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace orvane::bookkeeping {
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

/// The map as text, without the brace at the end.
std::string written(Records& records) {
  EXPECT_TRUE(records.encodeAll());
  std::string text;
  EXPECT_TRUE(records.write([&text](std::string_view part) {
    text += part;
    return true;
  }));
  return text.substr(0, text.size() - 1);
}

Records read(const std::string& text) {
  return Records::decode(simdjson::padded_string(text + "}")).value();
}

TEST(RecordMapTest, DoesWhatAPlainMapDoes) {
  std::mt19937 random(7);
  Records records;
  Model model;
  Model earlier = {{"0", 0}};
  std::string earlierText = "{\"\\u0030\":" + recordOf("0", 0).encodeJson().value();
  for (int step = 0; step < 4000; ++step) {
    // Long identifiers too, which lie outside their string.
    const auto number = random() % 60;
    const auto id = std::to_string(number) + std::string(number % 2 * 30, 'x');
    const auto action = random() % 4;
    if (action == 0) {
      records.remove(id);
      model.erase(id);
    } else if (action == 1) {
      EXPECT_EQ(records.update(id, [](UploadRecord& r) { ++r.retryCount; }), model.contains(id));
      if (model.contains(id)) ++model[id];
    } else {
      records.put(id, recordOf(id, step));
      model[id] = step;
    }
    ASSERT_EQ(records.find(id) != nullptr, model.contains(id));
    ASSERT_EQ(records.size(), model.size());
    if (step % 10 != 0) continue;
    ASSERT_EQ(modelOf(records), model);
    const auto text = written(records);
    ASSERT_EQ(modelOf(read(text)), model);
    if (step % 100 != 0 || model.empty()) continue;
    // Of equal keys the last one counts.
    records = read(earlierText + "," + text.substr(1));
    for (const auto& entry : std::exchange(earlier, model)) model.insert(entry);
    ASSERT_EQ(modelOf(records), model);
    earlierText = text;
  }
}

}  // namespace
}  // namespace orvane::bookkeeping
