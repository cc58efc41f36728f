#pragma once

#include <orvane/Error.h>

#include <sqlite3.h>

#include <string>

namespace orvane::platform {

/// The failure of the last call on `connection`: SQLite's extended code and message.
[[nodiscard]] Error lastSqliteError(sqlite3* connection);

/// A failure that SQLite itself has not seen; `code` is the closest of its codes.
[[nodiscard]] Error sqliteError(int code, std::string description);

}  // namespace orvane::platform
