#include <orvane/platform/database/DatabaseMigrator.h>

#include <algorithm>
#include <utility>

namespace orvane::platform {
namespace {

constexpr std::string_view kCreateRecords =
    "CREATE TABLE IF NOT EXISTS grdb_migrations (identifier TEXT NOT NULL PRIMARY KEY)";
constexpr std::string_view kApplied = "SELECT identifier FROM grdb_migrations";
constexpr std::string_view kIsApplied = "SELECT COUNT(*) FROM grdb_migrations WHERE identifier = ?";
constexpr std::string_view kRecord = "INSERT INTO grdb_migrations (identifier) VALUES (?)";

using Identifiers = std::vector<std::string>;

Result<Identifiers> appliedIn(Database& database) {
  auto hasRecords = database.tableExists("grdb_migrations");
  if (!hasRecords) return std::unexpected(std::move(hasRecords).error());
  if (!*hasRecords) return Identifiers();
  return database.fetchAll(kApplied, {}, {"identifier"},
                           [](const DatabaseRow& row) { return std::string(row.text(0)); });
}

Result<void> applyOnce(Database& database, const std::string& identifier,
                       const DatabaseMigrator::Step& step) {
  if (auto created = database.execute(kCreateRecords); !created) return created;
  // Another process may have applied it in the meantime.
  auto applied = database.fetchInteger(kIsApplied, {identifier});
  if (!applied) return std::unexpected(std::move(applied).error());
  if (applied->value_or(0) != 0) return {};
  if (auto done = step(database); !done) return done;
  return database.execute(kRecord, {identifier});
}

}  // namespace

void DatabaseMigrator::add(std::string identifier, Step step) {
  migrations_.push_back({std::move(identifier), std::move(step)});
}

Result<void> DatabaseMigrator::migrate(DatabaseQueue& queue) const {
  const auto applied = queue.read(appliedIn);
  if (!applied) return std::unexpected(applied.error());
  for (const auto& [identifier, step] : migrations_) {
    if (std::ranges::find(*applied, identifier) != applied->end()) continue;
    auto done =
        queue.write([&](Database& database) { return applyOnce(database, identifier, step); });
    if (!done) return done;
  }
  return {};
}

}  // namespace orvane::platform
