#pragma once

#include <orvane/Error.h>
#include <orvane/platform/base/Bytes.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace orvane::platform {

class SqliteStatement;

/// What a "?" stands for: NULL, an integer, a number, a text or bytes. Texts and bytes are borrowed
/// for the call and stored as they are, NUL characters and malformed UTF-8 included.
using DatabaseValue =
    std::variant<std::monostate, std::int64_t, double, std::string_view, ByteView>;

/// The values of a statement's "?", in their order; as many as the statement has.
using DatabaseArguments = std::initializer_list<DatabaseValue>;

/// Names of result columns; a row counts its columns in the order of this list, or, where the list
/// is empty, in that of the result.
using DatabaseColumns = std::initializer_list<std::string_view>;

/// One row of a query, valid only in the function it is given to. Values of another kind are
/// converted by SQLite's rules; NULL reads as 0 or as empty.
class DatabaseRow {
 public:
  DatabaseRow(const SqliteStatement& statement, const int* columns)
      : statement_(statement), columns_(columns) {}

  /// The value of a column; `column` counts the names that the query was asked for, from 0.
  /// Texts and bytes lie in the database's memory until the function returns.
  [[nodiscard]] std::string_view text(std::size_t column) const;
  [[nodiscard]] ByteView bytes(std::size_t column) const;
  [[nodiscard]] std::int64_t integer(std::size_t column) const;
  [[nodiscard]] double real(std::size_t column) const;

 private:
  const SqliteStatement& statement_;
  const int* columns_;
};

/// The connection of a `DatabaseQueue`, for the length of one of its blocks.
///
/// Each statement text is prepared once and kept for the life of the connection, so values belong
/// into arguments. A text holds one statement. All errors have the domain `Error::kDatabase`.
///
///     database.fetchAll("SELECT name FROM people WHERE age > ?", {30}, {"name"},
///                       [](const DatabaseRow& row) { return std::string(row.text(0)); });
class Database {
 public:
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  /// Runs a statement; rows that it gives are passed over.
  [[nodiscard]] Result<void> execute(std::string_view statement, DatabaseArguments arguments = {});

  /// Calls `visit` with every row of the result. It may use the database.
  template <class Visit>
  [[nodiscard]] Result<void> forEachRow(std::string_view statement, DatabaseArguments arguments,
                                        DatabaseColumns columns, Visit&& visit) {
    auto each = [&visit](const DatabaseRow& row) { return visit(row), true; };
    return run(statement, arguments, columns, visitorOf(each));
  }

  /// What `map` makes of every row.
  template <class Map>
  [[nodiscard]] auto fetchAll(std::string_view statement, DatabaseArguments arguments,
                              DatabaseColumns columns, Map&& map)
      -> Result<std::vector<std::invoke_result_t<Map&, const DatabaseRow&>>> {
    std::vector<std::invoke_result_t<Map&, const DatabaseRow&>> all;
    auto done = forEachRow(statement, arguments, columns,
                           [&](const DatabaseRow& row) { all.push_back(map(row)); });
    if (!done) return std::unexpected(std::move(done).error());
    return all;
  }

  /// What `map` makes of the first row; nothing when there is none.
  template <class Map>
  [[nodiscard]] auto fetchOne(std::string_view statement, DatabaseArguments arguments,
                              DatabaseColumns columns, Map&& map)
      -> Result<std::optional<std::invoke_result_t<Map&, const DatabaseRow&>>> {
    std::optional<std::invoke_result_t<Map&, const DatabaseRow&>> one;
    auto first = [&](const DatabaseRow& row) { return one.emplace(map(row)), false; };
    auto done = run(statement, arguments, columns, visitorOf(first));
    if (!done) return std::unexpected(std::move(done).error());
    return one;
  }

  /// The first column of the first row; nothing when there is no row.
  [[nodiscard]] Result<std::optional<std::int64_t>> fetchInteger(std::string_view statement,
                                                                 DatabaseArguments arguments = {});

  /// Whether the main schema has a table of that name (letter case aside, as SQLite has it).
  [[nodiscard]] Result<bool> tableExists(std::string_view name);

 private:
  friend class DatabaseQueue;
  struct Connection;
  enum class Transaction { none, read, write };

  /// A reference to a function that takes a row and says whether to go on.
  struct Visitor {
    void* function;
    bool (*call)(void* function, const DatabaseRow& row);
  };
  template <class F>
  static Visitor visitorOf(F& function) {
    return {&function,
            [](void* f, const DatabaseRow& row) -> bool { return (*static_cast<F*>(f))(row); }};
  }

  explicit Database(std::unique_ptr<Connection> connection);
  static Result<std::unique_ptr<Database>> open(const std::filesystem::path& file);

  Result<void> begin(Transaction kind);
  Result<void> commit();
  void rollBack();
  Result<void> run(std::string_view statement, DatabaseArguments arguments, DatabaseColumns columns,
                   Visitor visitor);

  std::unique_ptr<Connection> connection_;
};

}  // namespace orvane::platform
