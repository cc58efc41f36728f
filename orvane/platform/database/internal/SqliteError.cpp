#include <orvane/platform/database/internal/SqliteError.h>

#include <system_error>
#include <utility>

namespace orvane::platform {

Error lastSqliteError(sqlite3* connection) {
  // Without memory there may be no connection.
  if (connection == nullptr) return sqliteError(SQLITE_NOMEM, sqlite3_errstr(SQLITE_NOMEM));
  const int code = sqlite3_extended_errcode(connection);
  std::string description = sqlite3_errmsg(connection);
  const int primary = code & 0xff;
  const int system = sqlite3_system_errno(connection);
  if (system != 0 && (primary == SQLITE_CANTOPEN || primary == SQLITE_IOERR)) {
    description += ": " + std::generic_category().message(system);
  }
  return sqliteError(code, std::move(description));
}

Error sqliteError(int code, std::string description) {
  return {Error::kDatabase, code, std::move(description)};
}

}  // namespace orvane::platform
