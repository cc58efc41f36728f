// What the tag database costs beside the same statements run on sqlite3 by hand, with the same
// pragmas and transactions: storing five tags for each of 20,000 assets, and reading 1,000,000
// rows. The floor steps through a result and looks at every value; it builds nothing from them.

#include <orvane/tagging/TagDatabase.h>

#include <orvane/platform/host/HostApplication.h>
#include <orvane/tagging/internal/TagStatements.h>

#include "BareDatabase.h"
#include "DataFolder.h"
#include "Ratio.h"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {
namespace {

namespace fs = std::filesystem;
namespace statements = tagging::statements;
using benchmarks::assetIdOf;
using benchmarks::Bare;
using benchmarks::BareConnection;
using benchmarks::Ratio;
using benchmarks::require;

constexpr int kTagsPerAsset = 5;
constexpr int kAssetsPerRound = 20;  // Short rounds: other use of the disk meets both sides alike.
constexpr int kWriteRounds = 1'000;
constexpr int kAssets = 200'000;
constexpr std::string_view kDevice = "6F1C2A90-3B7D-4E21-9C55-0A8E7B3D2F14";
constexpr std::array<std::string_view, 16> kTags = {
    "spiaggia", "mare",  "cielo", "tramonto", "montagna", "neve", "persone",    "bambino",
    "cane",     "gatto", "cibo",  "dolce",    "edificio", "auto", "bicicletta", "documento"};

/// The engine's database, in a data folder of the process's own.
fs::path tagDatabase() {
  static const benchmarks::DataFolder folder;
  static const bool ready = TagDatabase::shared().initialize().has_value();
  require(ready, "initialize");
  return HostApplication::documentsDirectory().value() / "tag_database.sqlite";
}

std::vector<TagWithConfidence> tagsOf(int number) {
  std::vector<TagWithConfidence> tags;
  for (int i = 0; i < kTagsPerAsset; ++i) {
    const auto place = static_cast<std::size_t>(number * 7 + i) % kTags.size();
    tags.push_back({std::string(kTags[place]), 0.95 - 0.1 * i});
  }
  return tags;
}

struct Asset {
  std::string id;
  std::vector<TagWithConfidence> tags;
};

std::vector<Asset> assetsFrom(int first, int count) {
  std::vector<Asset> assets;
  for (int i = first; i < first + count; ++i) assets.push_back({assetIdOf(i), tagsOf(i)});
  return assets;
}

void insert(Bare& upsert, const Asset& asset, std::int64_t time) {
  for (const auto& tag : asset.tags) benchmarks::insertTag(upsert, asset.id, tag, time, kDevice);
}

std::int64_t now() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

void upsertTags(benchmark::State& state) {
  BareConnection connection(tagDatabase().replace_filename("floor.sqlite"));
  benchmarks::copySchema(tagDatabase(), connection);
  Bare begin(connection.handle(), "BEGIN IMMEDIATE");
  Bare upsert(connection.handle(), statements::kUpsertTag);
  Bare commit(connection.handle(), "COMMIT");
  Ratio ratio(state);
  int first = 0;
  for (auto _ : state) {
    const auto assets = assetsFrom(first, kAssetsPerRound);
    first += kAssetsPerRound;
    ratio.engine([&] {
      for (const auto& [id, tags] : assets) {
        require(TagDatabase::shared().upsertTags(id, tags, kDevice).has_value(), "upsertTags");
      }
    });
    ratio.floor([&] {
      for (const auto& asset : assets) {
        begin.run();
        insert(upsert, asset, now());
        commit.run();
      }
    });
  }
  ratio.report();
}

/// Fills the engine's file up to `kAssets` assets, quickly.
void fill() {
  static bool full = false;
  if (full) return;
  full = true;
  BareConnection connection(tagDatabase());
  connection.execute("PRAGMA synchronous=OFF");
  connection.execute("PRAGMA cache_size=-1000000");
  connection.execute("BEGIN IMMEDIATE");
  Bare upsert(connection.handle(), statements::kUpsertTag);
  for (int i = 0; i < kAssets; ++i) insert(upsert, {assetIdOf(i), tagsOf(i)}, now());
  connection.execute("COMMIT");
  connection.execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

template <class T>
std::size_t rowsOf(const std::vector<T>& result) {
  return result.size();
}

std::size_t rowsOf(const TagsByAsset& result) {
  std::size_t rows = 0;
  for (const auto& [asset, tags] : result) rows += tags.size();
  return rows;
}

/// Reads the file with `engine`, and as often with the bare statement; `look` sees each of its
/// rows.
template <class Value, class Engine, class Look>
void compare(benchmark::State& state, std::string_view text, const Value& argument, Engine&& engine,
             Look&& look) {
  fill();
  BareConnection connection(tagDatabase());
  Bare statement(connection.handle(), text);
  statement.bind(1, argument);
  Ratio ratio(state, Ratio::Clock::processCpu);
  std::size_t rows = 0;
  for (auto _ : state) {
    ratio.floor([&] {
      rows = 0;
      for (; statement.step(); ++rows) look(statement.handle());
      sqlite3_reset(statement.handle());
    });
    std::optional<decltype(engine())> result;
    ratio.engine([&] { result.emplace(engine()); });
    require(rowsOf(result->value()) == rows, "the engine has read other rows");
  }
  state.counters["rows"] = static_cast<double>(rows);
  ratio.report();
}

void lookAtText(sqlite3_stmt* row, int column) {
  benchmark::DoNotOptimize(sqlite3_column_text(row, column));
  benchmark::DoNotOptimize(sqlite3_column_bytes(row, column));
}

void searchAssetsByTag(benchmark::State& state) {
  compare(
      state, statements::kSearchAssetsByTag, std::string_view("%aggi%"),
      [] { return TagDatabase::shared().searchAssetsByTag("aggi"); },
      [](sqlite3_stmt* row) { lookAtText(row, 0); });
}

void topTags(benchmark::State& state) {
  compare(
      state, statements::kTopTags, std::int64_t{10},
      [] { return TagDatabase::shared().topTags(10); },
      [](sqlite3_stmt* row) {
        lookAtText(row, 0);
        benchmark::DoNotOptimize(sqlite3_column_int64(row, 1));
      });
}

void exportAllTagsForDevice(benchmark::State& state) {
  compare(
      state, statements::kExportAllTagsForDevice, kDevice,
      [] { return TagDatabase::shared().exportAllTagsForDevice(kDevice); },
      [](sqlite3_stmt* row) {
        lookAtText(row, 0);
        lookAtText(row, 1);
        benchmark::DoNotOptimize(sqlite3_column_double(row, 2));
      });
}

BENCHMARK(upsertTags)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(kWriteRounds);
BENCHMARK(searchAssetsByTag)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(9);
BENCHMARK(topTags)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(9);
BENCHMARK(exportAllTagsForDevice)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(9);

}  // namespace
}  // namespace orvane
