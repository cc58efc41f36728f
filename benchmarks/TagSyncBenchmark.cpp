// What the tag objects of 100,000 assets with five tags each cost, each beside its floor in the
// same run: building one against appending the same bytes, reading and merging one against
// inserting the same rows by hand, in transactions of 1,000 lines.

#include <benchmark/benchmark.h>
#include <orvane/bookkeeping/UploadStore.h>
#include <orvane/platform/HostApplication.h>
#include <orvane/tagging/TagDatabase.h>
#include <orvane/tagsync/internal/TagExchange.h>
#include <orvane/tagsync/internal/TagObject.h>
#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Ratio.h"

namespace orvane {
namespace {

namespace fs = std::filesystem;

constexpr int kAssets = 100'000;
constexpr int kTagsPerAsset = 5;
constexpr int kLinesPerPiece = 5'000;
constexpr std::int64_t kTimestamp = 1'732'320'000'000;

std::string idOf(int number) {
  std::array<char, 64> id{};
  std::snprintf(id.data(), id.size(), "8C1F%04X-4B3D-4C5E-9F10-2A3B%08X/L0/001", number & 0xffff,
                static_cast<unsigned>(number) * 2654435761U);
  return id.data();
}

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

/// A data folder of the process's own, where every asset has an upload record.
struct Setting {
  fs::path data;

  Setting() {
    std::string name = (fs::temp_directory_path() / "orvane-benchmark-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    data = name;
    if (!HostApplication::configure({.dataDirectory = data})) throw std::runtime_error("configure");
    std::vector<UploadRecord> records;
    for (int i = 0; i < kAssets; ++i) {
      records.emplace_back(idOf(i), filenameOf(i), UploadStatus::completed, 2'048'576, 2'048'576);
    }
    UploadStore::shared().upsertBatch(std::move(records));
    if (UploadStore::shared().completedCount() != kAssets) throw std::runtime_error("records");
  }
  ~Setting() { fs::remove_all(data); }
};

void prepare() { static const Setting setting; }

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
  for (int i = 0; i < kAssets; ++i) tags[idOf(i)] = tagsOf(i);
  return tags;
}

void BuildTagObject(benchmark::State& state) {
  prepare();
  const auto tags = allTags();
  const auto object = internal::tagObjectOf(tags, kTimestamp);
  const auto lines = linesOf(textOf(object));
  if (lines.size() != kAssets) throw std::runtime_error("lines");

  benchmarks::Ratio ratio(state);
  for (auto _ : state) {
    ratio.engine([&] { benchmark::DoNotOptimize(internal::tagObjectOf(tags, kTimestamp)); });
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

/// SQLite by hand: its own file with the schema and the settings of the tag database.
class PlainDatabase {
 public:
  explicit PlainDatabase(const fs::path& file) {
    check(sqlite3_open(file.c_str(), &handle_));
    execute("PRAGMA journal_mode=WAL");
  }
  ~PlainDatabase() {
    sqlite3_finalize(insert_);
    sqlite3_close(handle_);
  }
  PlainDatabase(const PlainDatabase&) = delete;
  PlainDatabase& operator=(const PlainDatabase&) = delete;

  void execute(const char* statement) {
    check(sqlite3_exec(handle_, statement, nullptr, nullptr, nullptr));
  }

  void copySchemaFrom(const fs::path& file) {
    execute(("ATTACH '" + file.string() + "' AS other").c_str());
    std::vector<std::string> statements;
    sqlite3_stmt* query = nullptr;
    check(sqlite3_prepare_v2(handle_,
                             "SELECT sql FROM other.sqlite_master WHERE tbl_name = 'asset_tags' "
                             "AND sql IS NOT NULL",
                             -1, &query, nullptr));
    while (sqlite3_step(query) == SQLITE_ROW) {
      statements.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(query, 0)));
    }
    sqlite3_finalize(query);
    execute("DETACH other");
    for (const auto& statement : statements) execute(statement.c_str());
    check(sqlite3_prepare_v2(handle_,
                             "INSERT OR REPLACE INTO asset_tags (asset_id, tag, confidence, "
                             "source, created_at, device_uuid) VALUES (?, ?, ?, ?, ?, ?)",
                             -1, &insert_, nullptr));
  }

  void insert(const std::string& assetId, const TagWithConfidence& tag, std::string_view device) {
    const std::chrono::duration<double, std::milli> now =
        std::chrono::system_clock::now().time_since_epoch();
    bind(1, assetId);
    bind(2, tag.tag);
    sqlite3_bind_double(insert_, 3, tag.confidence);
    bind(4, "ml_v1");
    sqlite3_bind_double(insert_, 5, now.count());
    bind(6, device);
    if (sqlite3_step(insert_) != SQLITE_DONE) throw std::runtime_error("insert");
    sqlite3_reset(insert_);
  }

 private:
  static void check(int code) {
    if (code != SQLITE_OK) throw std::runtime_error(sqlite3_errstr(code));
  }
  void bind(int position, std::string_view text) {
    sqlite3_bind_text(insert_, position, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }

  sqlite3* handle_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

/// One piece of the object after the other, so that other use of the disk meets engine and floor
/// alike.
void MergeTagObject(benchmark::State& state) {
  constexpr std::string_view kDevice = "6F9619FF-8B86-D011-B42D-00C04FC964FF";
  constexpr int kLinesPerTransaction = 1000;
  prepare();
  auto& database = TagDatabase::shared();
  if (!database.initialize()) throw std::runtime_error("database");
  const auto documents = HostApplication::documentsDirectory().value();
  PlainDatabase plain(documents / "plain.sqlite");
  plain.copySchemaFrom(documents / "tag_database.sqlite");
  PlainDatabase engine(documents / "tag_database.sqlite");

  const auto tags = allTags();
  const auto object = internal::tagObjectOf(tags, kTimestamp);
  const auto lines = linesOf(textOf(object));
  const auto assets = internal::assetsByObjectName();
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
      internal::TagObjectReader reader(std::move(piece));
      if (!reader.isUtf8() || internal::mergeTags(reader, database, kDevice, assets) !=
                                  std::int64_t{kLinesPerPiece} * kTagsPerAsset) {
        throw std::runtime_error("merge");
      }
    });
    ratio.floor([&] {
      for (int i = 0; i < kLinesPerPiece; ++i, ++asset) {
        if (i % kLinesPerTransaction == 0) plain.execute("BEGIN IMMEDIATE");
        for (const auto& tag : asset->second) plain.insert(asset->first, tag, kDevice);
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
