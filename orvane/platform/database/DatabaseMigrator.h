#pragma once

#include <orvane/Error.h>
#include <orvane/platform/database/DatabaseQueue.h>

#include <functional>
#include <string>
#include <vector>

namespace orvane::platform {

/// Named steps that lead a database to its present layout, each applied once per file.
///
/// The names of the steps applied are kept in the file, in the table "grdb_migrations" (one column
/// "identifier"), where earlier writers of such files have kept them too.
///
///     DatabaseMigrator migrator;
///     migrator.add("v1", [](Database& database) { return database.execute("CREATE TABLE ..."); });
///     auto migrated = migrator.migrate(queue);
class DatabaseMigrator {
 public:
  using Step = std::function<Result<void>(Database&)>;

  /// Adds a step after those added before. `identifier` is its own for all time.
  void add(std::string identifier, Step step);

  /// Applies the steps that the file has no record of, in their order, each in one transaction
  /// with its record. Stops at the first error and returns it; that step has then changed nothing,
  /// those before it stay. Does not write when nothing is left to apply. Several processes may
  /// migrate one file at the same time. Blocks.
  [[nodiscard]] Result<void> migrate(DatabaseQueue& queue) const;

 private:
  struct Migration {
    std::string identifier;
    Step step;
  };
  std::vector<Migration> migrations_;
};

}  // namespace orvane::platform
