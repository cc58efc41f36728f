#pragma once

#include <orvane/tagging/TagWithConfidence.h>

#include "DataFolder.h"

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <string_view>

/// SQLite by hand, with the settings of the tag database.
namespace orvane::benchmarks {

/// A statement as written by hand.
class Bare {
 public:
  Bare(sqlite3* connection, std::string_view text) {
    require(sqlite3_prepare_v3(connection, text.data(), static_cast<int>(text.size()),
                               SQLITE_PREPARE_PERSISTENT, &handle_, nullptr) == SQLITE_OK,
            "prepare");
  }
  ~Bare() { sqlite3_finalize(handle_); }
  Bare(const Bare&) = delete;
  Bare& operator=(const Bare&) = delete;

  sqlite3_stmt* handle() { return handle_; }
  void bind(int position, std::string_view text) {
    sqlite3_bind_text(handle_, position, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }
  void bind(int position, std::int64_t value) { sqlite3_bind_int64(handle_, position, value); }
  void bind(int position, double value) { sqlite3_bind_double(handle_, position, value); }
  bool step() {
    const int code = sqlite3_step(handle_);
    require(code == SQLITE_ROW || code == SQLITE_DONE, "step");
    return code == SQLITE_ROW;
  }
  void run() {
    while (step()) {
    }
    sqlite3_reset(handle_);
  }

 private:
  sqlite3_stmt* handle_ = nullptr;
};

class BareConnection {
 public:
  explicit BareConnection(const std::filesystem::path& file) {
    require(sqlite3_open_v2(file.c_str(), &handle_,
                            SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                            nullptr) == SQLITE_OK,
            "open");
    execute("PRAGMA journal_mode=WAL");
    execute("PRAGMA busy_timeout=3000");
  }
  ~BareConnection() { sqlite3_close(handle_); }
  BareConnection(const BareConnection&) = delete;
  BareConnection& operator=(const BareConnection&) = delete;

  sqlite3* handle() { return handle_; }
  void execute(const char* text) {
    require(sqlite3_exec(handle_, text, nullptr, nullptr, nullptr) == SQLITE_OK, text);
  }

 private:
  sqlite3* handle_ = nullptr;
};

/// Makes the schema of the file `source` in another one.
inline void copySchema(const std::filesystem::path& source, BareConnection& target) {
  BareConnection connection(source);
  Bare schema(connection.handle(), "SELECT sql FROM sqlite_master WHERE sql IS NOT NULL");
  while (schema.step()) {
    const auto* text = sqlite3_column_text(schema.handle(), 0);
    target.execute(reinterpret_cast<const char*>(text));
  }
}

/// One row by the engine's `upsert` statement; `time` as an integer or a number.
template <class Time>
void insertTag(Bare& upsert, std::string_view assetId, const TagWithConfidence& tag, Time time,
               std::string_view device) {
  upsert.bind(1, assetId);
  upsert.bind(2, tag.tag);
  upsert.bind(3, tag.confidence);
  upsert.bind(4, "ml_v1");
  upsert.bind(5, time);
  upsert.bind(6, device);
  upsert.run();
}

}  // namespace orvane::benchmarks
