#include <orvane/platform/database/Database.h>

#include <orvane/platform/database/internal/SqliteError.h>
#include <orvane/platform/database/internal/SqliteStatement.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <cassert>
#include <functional>
#include <string>
#include <system_error>
#include <unordered_map>

namespace orvane::platform {
namespace {

constexpr int kPreparationTimeout = 3000;  // Milliseconds.

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>()(text);
  }
};

using StatementCache =
    std::unordered_map<std::string, std::unique_ptr<SqliteStatement>, TextHash, std::equal_to<>>;

/// An absolute path: SQLite gives some relative names meanings of their own.
Result<std::filesystem::path> locationOf(const std::filesystem::path& file) {
  std::error_code failed;
  auto location = std::filesystem::absolute(file, failed);
  if (failed || location.native().find('\0') != std::string::npos) {
    return std::unexpected(sqliteError(SQLITE_CANTOPEN, "The database's path is no path"));
  }
  return location;
}

/// Creates the file for this user alone, without opening it: closing it again would drop the locks
/// of the process's other connections. Where it cannot be created so, SQLite tries for itself.
void createPrivately(const std::filesystem::path& location) {
  static_cast<void>(::mknod(location.c_str(), S_IFREG | S_IRUSR | S_IWUSR, 0));
}

}  // namespace

std::string_view DatabaseRow::text(std::size_t column) const {
  const int index = columns_[column];
  // The text comes first: what it is converted from may have another length.
  const auto* text = sqlite3_column_text(statement_.handle(), index);
  const int length = sqlite3_column_bytes(statement_.handle(), index);
  // Any object may be read as char.
  return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(length)};
}

ByteView DatabaseRow::bytes(std::size_t column) const {
  const int index = columns_[column];
  const void* data = sqlite3_column_blob(statement_.handle(), index);
  const int length = sqlite3_column_bytes(statement_.handle(), index);
  return {static_cast<const std::byte*>(data), static_cast<std::size_t>(length)};
}

std::int64_t DatabaseRow::integer(std::size_t column) const {
  return sqlite3_column_int64(statement_.handle(), columns_[column]);
}

double DatabaseRow::real(std::size_t column) const {
  return sqlite3_column_double(statement_.handle(), columns_[column]);
}

struct Database::Connection {
  explicit Connection(sqlite3* opened) : handle(opened) {}
  ~Connection() {
    statements.clear();
    sqlite3_close(handle);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  std::unique_ptr<SqliteStatement>& slot(std::string_view text) {
    const auto found = statements.find(text);
    if (found != statements.end()) return found->second;
    return statements.emplace(text, nullptr).first->second;
  }

  /// Whether SQLite has ended the transaction that the block believes to be in.
  [[nodiscard]] bool hasLostTransaction() const {
    return transaction != Transaction::none && sqlite3_get_autocommit(handle) != 0;
  }

  sqlite3* handle;
  Transaction transaction = Transaction::none;
  StatementCache statements;
};

Database::Database(std::unique_ptr<Connection> connection) : connection_(std::move(connection)) {}

Database::~Database() = default;

Result<std::unique_ptr<Database>> Database::open(const std::filesystem::path& file) {
  const auto location = locationOf(file);
  if (!location) return std::unexpected(location.error());
  createPrivately(*location);
  sqlite3* handle = nullptr;
  // No mutex: the queue lets one thread at a time in.
  const int code =
      sqlite3_open_v2(location->c_str(), &handle,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  auto connection = std::make_unique<Connection>(handle);
  if (code != SQLITE_OK) return std::unexpected(lastSqliteError(handle));
  sqlite3_extended_result_codes(handle, 1);
  // Preparing a connection may meet another process that does the same, and waits for it.
  sqlite3_busy_timeout(handle, kPreparationTimeout);
  return std::unique_ptr<Database>(new Database(std::move(connection)));
}

Result<void> Database::execute(std::string_view statement, DatabaseArguments arguments) {
  auto passOver = [](const DatabaseRow&) { return true; };
  return run(statement, arguments, {}, visitorOf(passOver));
}

Result<std::optional<std::int64_t>> Database::fetchInteger(std::string_view statement,
                                                           DatabaseArguments arguments) {
  std::optional<std::int64_t> value;
  auto first = [&value](const DatabaseRow& row) { return value = row.integer(0), false; };
  auto done = run(statement, arguments, {}, visitorOf(first));
  if (!done) return std::unexpected(std::move(done).error());
  return value;
}

Result<bool> Database::tableExists(std::string_view name) {
  auto count = fetchInteger(
      "SELECT COUNT(*) FROM main.sqlite_master WHERE type = 'table' AND name = ? COLLATE NOCASE",
      {name});
  if (!count) return std::unexpected(std::move(count).error());
  return count->value_or(0) != 0;
}

Result<void> Database::begin(Transaction kind) {
  rollBack();  // Should that of the transaction before have failed.
  auto begun = execute(kind == Transaction::write ? "BEGIN IMMEDIATE" : "BEGIN DEFERRED");
  if (begun) connection_->transaction = kind;
  return begun;
}

Result<void> Database::commit() {
  auto committed = execute("COMMIT");
  if (committed) connection_->transaction = Transaction::none;
  return committed;
}

void Database::rollBack() {
  connection_->transaction = Transaction::none;
  // After some errors SQLite has done so already.
  if (sqlite3_get_autocommit(connection_->handle) == 0) static_cast<void>(execute("ROLLBACK"));
}

Result<void> Database::run(std::string_view statement, DatabaseArguments arguments,
                           DatabaseColumns columns, Visitor visitor) {
  // Outside of its transaction a statement would take effect whatever becomes of the block.
  if (connection_->hasLostTransaction()) {
    return std::unexpected(
        sqliteError(SQLITE_ABORT_ROLLBACK, "An earlier error has ended the transaction"));
  }
  auto& kept = connection_->slot(statement);
  // Taken out while it runs: a visitor may run the same text.
  auto prepared = std::exchange(kept, nullptr);
  if (!prepared) {
    auto made = SqliteStatement::prepare(connection_->handle, statement);
    if (!made) return std::unexpected(std::move(made).error());
    prepared = std::move(*made);
  }
  if (connection_->transaction == Transaction::read && !prepared->isReadOnly()) {
    return std::unexpected(sqliteError(SQLITE_READONLY, "A read cannot change the database"));
  }
  auto done = prepared->run(arguments, columns, [visitor](const DatabaseRow& row) {
    return visitor.call(visitor.function, row);
  });
  kept = std::move(prepared);
  return done;
}

}  // namespace orvane::platform
