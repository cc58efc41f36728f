#pragma once

#include <orvane/Error.h>
#include <orvane/platform/database/Database.h>

#include <sqlite3.h>

#include <memory>
#include <string_view>
#include <vector>

namespace orvane::platform {

/// One prepared statement.
class SqliteStatement {
 public:
  /// Prepares `text`, which must hold one statement and nothing after it.
  static Result<std::unique_ptr<SqliteStatement>> prepare(sqlite3* connection,
                                                          std::string_view text);

  explicit SqliteStatement(sqlite3_stmt* handle) : handle_(handle) {}
  ~SqliteStatement() { sqlite3_finalize(handle_); }
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;

  [[nodiscard]] sqlite3_stmt* handle() const { return handle_; }
  [[nodiscard]] bool isReadOnly() const { return sqlite3_stmt_readonly(handle_) != 0; }

  /// Runs the statement and calls `visit` with each row until it returns false.
  template <class Visit>
  Result<void> run(DatabaseArguments arguments, DatabaseColumns columns, Visit&& visit) {
    auto done = bind(arguments);
    if (done) done = step(columns, visit);
    // The borrowed arguments end with the call.
    sqlite3_reset(handle_);
    sqlite3_clear_bindings(handle_);
    return done;
  }

 private:
  [[nodiscard]] Result<void> bind(DatabaseArguments arguments) const;
  Result<void> locate(DatabaseColumns columns);
  Result<void> find(std::string_view column);
  [[nodiscard]] Error error() const;

  template <class Visit>
  Result<void> step(DatabaseColumns columns, Visit& visit) {
    int code = sqlite3_step(handle_);
    // Not before: the first step prepares the statement anew where the schema has changed.
    if (code == SQLITE_ROW || code == SQLITE_DONE) {
      if (auto located = locate(columns); !located) return located;
    }
    for (; code == SQLITE_ROW; code = sqlite3_step(handle_)) {
      if (!visit(DatabaseRow(*this, columns_.data()))) return {};
    }
    if (code != SQLITE_DONE) return std::unexpected(error());
    return {};
  }

  sqlite3_stmt* handle_;
  std::vector<int> columns_;  ///< Where the columns asked for stand in the result.
};

}  // namespace orvane::platform
