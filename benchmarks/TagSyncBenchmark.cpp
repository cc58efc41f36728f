// What the tag objects of 100,000 assets with five tags each cost, each beside its floor in the
// same run: building one against appending the same bytes, reading and merging one against
// inserting the same rows by hand, in transactions of 1,000 lines.

#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/host/HostApplication.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagging/internal/TagStatements.h>
#include <orvane/tagsync/internal/TagExchange.h>
#include <orvane/tagsync/internal/TagObject.h>

#include "BareDatabase.h"
#include "DataFolder.h"
#include "Ratio.h"

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {
namespace {

using benchmarks::assetIdOf;
using benchmarks::Bare;
using benchmarks::BareConnection;
using benchmarks::require;

constexpr int kAssets = 100'000;
constexpr int kTagsPerAsset = 5;
constexpr int kLinesPerPiece = 5'000;
constexpr std::int64_t kTimestamp = 1'732'320'000'000;

std::string filenameOf(int number) { return "media/IMG_" + std::to_string(number) + ".HEIC"; }

std::vector<TagWithConfidence> tagsOf(int number) {
  constexpr std::array<const char*, 8> kTags = {"spiaggia",         "mare",    "cielo notturno",
                                                "citt\u00e0",       "persona", "cane",
                                                "albero di Natale", "montagna"};
  std::vector<TagWithConfidence> tags;
  for (int i = 0; i < kTagsPerAsset; ++i) {
    const auto noise = static_cast<unsigned>(number * kTagsPerAsset + i) * 2654435761U >> 8;
    // Classifiers answer in single precision.
    const auto confidence = 0.3F + 0.7F * static_cast<float>(noise) / 16'777'216.0F;
    tags.push_back({kTags[static_cast<std::size_t>(number + i) % kTags.size()], confidence});
  }
  return tags;
}

/// Once makes a data folder of the process's own, where every asset has an upload record.
void prepare() {
  static const benchmarks::DataFolder folder;
  if (UploadStore::shared().completedCount() == kAssets) return;
  std::vector<UploadRecord> records;
  for (int i = 0; i < kAssets; ++i) {
    records.emplace_back(assetIdOf(i), filenameOf(i), UploadStatus::completed, 2'048'576,
                         2'048'576);
  }
  UploadStore::shared().upsertBatch(std::move(records));
  require(UploadStore::shared().completedCount() == kAssets, "records");
}

std::vector<std::string_view> linesOf(std::string_view body) {
  std::vector<std::string_view> lines;
  while (!body.empty()) {
    lines.push_back(body.substr(0, body.find('\n') + 1));
    body.remove_prefix(lines.back().size());
  }
  return lines;
}

TagsByAsset allTags() {
  TagsByAsset tags;
  for (int i = 0; i < kAssets; ++i) tags[assetIdOf(i)] = tagsOf(i);
  return tags;
}

void BuildTagObject(benchmark::State& state) {
  prepare();
  const auto tags = allTags();
  const auto object = tagsync::tagObjectOf(tags, kTimestamp);
  const auto lines = linesOf(textOf(object));
  require(lines.size() == kAssets, "lines");

  benchmarks::Ratio ratio(state);
  for (auto _ : state) {
    ratio.engine([&] { benchmark::DoNotOptimize(tagsync::tagObjectOf(tags, kTimestamp)); });
    ratio.floor([&] {
      std::string body;
      for (const auto line : lines) body.append(line);
      benchmark::DoNotOptimize(body);
    });
  }
  ratio.report();
  state.counters["bytes"] = static_cast<double>(object.size());
}
BENCHMARK(BuildTagObject)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(15);

double now() {
  return std::chrono::duration<double, std::milli>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

/// One piece of the object after the other, so that other use of the disk meets engine and floor
/// alike.
void MergeTagObject(benchmark::State& state) {
  constexpr std::string_view kDevice = "6F9619FF-8B86-D011-B42D-00C04FC964FF";
  constexpr int kLinesPerTransaction = 1000;
  prepare();
  auto& database = TagDatabase::shared();
  require(database.initialize().has_value(), "database");
  const auto documents = HostApplication::documentsDirectory().value();
  BareConnection plain(documents / "plain.sqlite");
  BareConnection engine(documents / "tag_database.sqlite");
  benchmarks::copySchema(documents / "tag_database.sqlite", plain);
  Bare upsert(plain.handle(), tagging::statements::kUpsertTag);

  const auto tags = allTags();
  const auto object = tagsync::tagObjectOf(tags, kTimestamp);
  const auto lines = linesOf(textOf(object));
  const auto assets = tagsync::assetsByObjectName();
  std::size_t line = kAssets;
  auto asset = tags.end();
  benchmarks::Ratio ratio(state);
  for (auto _ : state) {
    if (line == kAssets) {
      for (auto* const each : {&plain, &engine}) {
        each->execute("DELETE FROM asset_tags");
        each->execute("PRAGMA wal_checkpoint(TRUNCATE)");
      }
      line = 0;
      asset = tags.begin();
    }
    std::string piece;
    for (int i = 0; i < kLinesPerPiece; ++i) piece += lines[line++];
    ratio.engine([&] {
      tagsync::TagObjectReader reader(std::move(piece));
      require(reader.isUtf8(), "UTF-8");
      require(tagsync::mergeTags(reader, database, kDevice, assets) ==
                  std::int64_t{kLinesPerPiece} * kTagsPerAsset,
              "merge");
    });
    ratio.floor([&] {
      for (int i = 0; i < kLinesPerPiece; ++i, ++asset) {
        if (i % kLinesPerTransaction == 0) plain.execute("BEGIN IMMEDIATE");
        for (const auto& tag : asset->second) {
          benchmarks::insertTag(upsert, asset->first, tag, now(), kDevice);
        }
        if ((i + 1) % kLinesPerTransaction == 0) plain.execute("COMMIT");
      }
    });
  }
  ratio.report();
}
BENCHMARK(MergeTagObject)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3 * kAssets / kLinesPerPiece);

}  // namespace
}  // namespace orvane
