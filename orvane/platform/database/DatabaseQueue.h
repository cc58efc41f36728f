#pragma once

#include <orvane/Error.h>
#include <orvane/platform/database/Database.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace orvane::platform {

/// An SQLite file behind one connection, on which blocks run one at a time, in the order in which
/// they came.
///
/// Any thread may call; the caller waits until its block has run, possibly on the thread of
/// another caller. A block gets the connection, returns a `Result`, and must not throw. One that
/// calls its own queue again gets the error SQLITE_MISUSE (21) instead of waiting for itself.
///
/// When another connection holds a lock, a block waits up to 3 s for it, then fails with
/// SQLITE_BUSY (5); the preparation may set another busy time-out. A connection does not survive a
/// fork.
///
///     auto queue = DatabaseQueue::open(file);
///     auto written = (*queue)->write([&](Database& database) {
///       return database.execute("INSERT INTO people (name) VALUES (?)", {name});
///     });
class DatabaseQueue {
 public:
  /// Work on the new connection before any other, outside of a transaction, such as pragmas.
  /// Its error fails the opening.
  using Preparation = std::function<Result<void>(Database&)>;

  /// Opens `file`, and creates it (mode 0600) if it does not exist; its folder must. The file is
  /// first read by the first statement, so one that is no database fails there with SQLITE_NOTADB
  /// (26). Errors have the domain `Error::kDatabase`.
  [[nodiscard]] static Result<std::unique_ptr<DatabaseQueue>> open(
      const std::filesystem::path& file, const Preparation& prepare = {});

  /// Closes the file. No call may be under way.
  ~DatabaseQueue();
  DatabaseQueue(const DatabaseQueue&) = delete;
  DatabaseQueue& operator=(const DatabaseQueue&) = delete;

  /// Runs `block(Database&)` on one snapshot of the database. Statements that would change it fail
  /// with SQLITE_READONLY (8).
  template <class Block>
  [[nodiscard]] auto read(Block&& block) -> std::invoke_result_t<Block&, Database&> {
    return run(Database::Transaction::read, block);
  }

  /// Runs `block(Database&)` in a transaction that is begun with BEGIN IMMEDIATE. When the block
  /// returns an error the transaction is rolled back; otherwise it is committed. So after an error
  /// nothing has changed. A block may pass over the errors of single statements; where such an
  /// error has ended the transaction (a full disk may), every further statement and the write as a
  /// whole fail.
  template <class Block>
  [[nodiscard]] auto write(Block&& block) -> std::invoke_result_t<Block&, Database&> {
    return run(Database::Transaction::write, block);
  }

 private:
  struct State;
  explicit DatabaseQueue(std::unique_ptr<State> state);

  template <class Block>
  auto run(Database::Transaction kind, Block& block) -> std::invoke_result_t<Block&, Database&> {
    std::optional<std::invoke_result_t<Block&, Database&>> result;
    auto done = runInTransaction(kind, [&](Database& database) -> Result<void> {
      result.emplace(block(database));
      if (!*result) return std::unexpected(result->error());
      return {};
    });
    if (!done) return std::unexpected(std::move(done).error());
    return std::move(*result);
  }
  Result<void> runInTransaction(Database::Transaction kind,
                                const std::function<Result<void>(Database&)>& block);

  std::unique_ptr<State> state_;
};

}  // namespace orvane::platform
