#include <orvane/platform/database/internal/SqliteStatement.h>

#include <orvane/platform/database/internal/SqliteError.h>

#include <climits>
#include <string>

namespace orvane::platform {
namespace {

/// Hands a value to SQLite, which borrows texts and bytes until the statement is reset. A null
/// pointer would mean NULL, so what is empty gets another one.
struct Binder {
  sqlite3_stmt* statement;
  int position;

  int operator()(std::monostate) const { return sqlite3_bind_null(statement, position); }
  int operator()(std::int64_t value) const {
    return sqlite3_bind_int64(statement, position, value);
  }
  int operator()(double value) const { return sqlite3_bind_double(statement, position, value); }
  int operator()(std::string_view text) const {
    return sqlite3_bind_text64(statement, position, text.empty() ? "" : text.data(), text.size(),
                               SQLITE_STATIC, SQLITE_UTF8);
  }
  int operator()(ByteView bytes) const {
    const void* data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
    return sqlite3_bind_blob64(statement, position, data, bytes.size(), SQLITE_STATIC);
  }
};

bool isBlank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n\f;") == std::string_view::npos;
}

}  // namespace

Result<std::unique_ptr<SqliteStatement>> SqliteStatement::prepare(sqlite3* connection,
                                                                  std::string_view text) {
  // SQLite would stop reading at a NUL, and leave a second statement aside.
  if (text.size() > INT_MAX || text.find('\0') != std::string_view::npos) {
    return std::unexpected(sqliteError(SQLITE_MISUSE, "The statement is too long or has a NUL"));
  }
  sqlite3_stmt* handle = nullptr;
  const char* rest = nullptr;
  const int code = sqlite3_prepare_v3(connection, text.data(), static_cast<int>(text.size()),
                                      SQLITE_PREPARE_PERSISTENT, &handle, &rest);
  if (code != SQLITE_OK) return std::unexpected(lastSqliteError(connection));
  auto statement = std::make_unique<SqliteStatement>(handle);
  if (handle == nullptr || !isBlank({rest, text.data() + text.size()})) {
    return std::unexpected(sqliteError(SQLITE_MISUSE, "The text is not one statement"));
  }
  return statement;
}

Result<void> SqliteStatement::bind(DatabaseArguments arguments) const {
  if (arguments.size() != static_cast<std::size_t>(sqlite3_bind_parameter_count(handle_))) {
    return std::unexpected(sqliteError(SQLITE_RANGE, "The statement takes other arguments"));
  }
  int position = 0;
  for (const auto& value : arguments) {
    const int code = std::visit(Binder{handle_, ++position}, value);
    if (code != SQLITE_OK) return std::unexpected(error());
  }
  return {};
}

Result<void> SqliteStatement::locate(DatabaseColumns columns) {
  columns_.clear();
  for (const auto column : columns) {
    if (auto found = find(column); !found) return found;
  }
  if (columns.size() == 0) {
    for (int i = 0; i < sqlite3_column_count(handle_); ++i) columns_.push_back(i);
  }
  return {};
}

Result<void> SqliteStatement::find(std::string_view column) {
  const int count = sqlite3_column_count(handle_);
  for (int i = 0; i < count; ++i) {
    const char* name = sqlite3_column_name(handle_, i);  // Null when memory has run out.
    if (name != nullptr && column == name) {
      columns_.push_back(i);
      return {};
    }
  }
  return std::unexpected(sqliteError(SQLITE_RANGE, "No result column " + std::string(column)));
}

Error SqliteStatement::error() const { return lastSqliteError(sqlite3_db_handle(handle_)); }

}  // namespace orvane::platform
