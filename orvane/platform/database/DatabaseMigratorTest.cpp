#include <orvane/platform/database/DatabaseMigrator.h>

#include "support/Test.h"

namespace orvane::platform {
namespace {

std::unique_ptr<DatabaseQueue> openTest() {
  return DatabaseQueue::open(
             testDirectory() / "test.sqlite",
             [](Database& database) { return database.execute("PRAGMA busy_timeout=10000"); })
      .value();
}

DatabaseMigrator migratorOf(const std::vector<std::pair<const char*, const char*>>& steps) {
  DatabaseMigrator migrator;
  for (const auto& [name, statement] : steps) {
    migrator.add(name, [statement](Database& database) -> Result<void> {
      if (auto done = database.execute(statement); !done) return done;
      return database.execute("INSERT INTO log VALUES (1)");
    });
  }
  return migrator;
}

/// The names of the steps applied, and how many have run.
std::string stateOf(DatabaseQueue& queue) {
  std::string state;
  EXPECT_TRUE(queue.read([&](Database& database) {
    return database.forEachRow(
        "SELECT identifier FROM grdb_migrations UNION ALL"
        " SELECT CAST(COUNT(*) AS TEXT) FROM log",
        {}, {}, [&](const DatabaseRow& row) { state.append(row.text(0)) += ' '; });
  }));
  return state;
}

TEST(DatabaseMigrator, AppliesEachStepOnceInOrderOrNotAtAll) {
  const std::pair<const char*, const char*> one{"one", "CREATE TABLE log (step)"};
  const std::pair<const char*, const char*> two{"two", "CREATE TABLE more (x)"};
  const std::pair<const char*, const char*> broken{"broken", "CREATE TABLE log (x)"};
  const std::pair<const char*, const char*> half{"half", "ALTER TABLE log RENAME TO lost"};
  const struct {
    std::vector<std::pair<const char*, const char*>> steps;
    bool succeeds;
    const char* state;
  } cases[] = {{{one}, true, "one 1 "},
               {{one, two}, true, "one two 2 "},
               {{one, two, broken, {"late", "SELECT 1"}}, false, "one two 2 "},
               {{one, two, half}, false, "one two 2 "},
               {{one, two, {"late", "SELECT 1"}}, true, "one two late 3 "}};
  const auto queue = openTest();
  for (const auto& c : cases) {
    EXPECT_EQ(migratorOf(c.steps).migrate(*queue).has_value(), c.succeeds);
    EXPECT_EQ(stateOf(*queue), c.state);
  }
  const auto meanwhile =
      openTest()->write([&](Database&) { return migratorOf({one, two}).migrate(*queue); });
  EXPECT_TRUE(meanwhile) << "nothing to apply needs no lock";
}

TEST(DatabaseMigrator, SeveralMayMigrateOneFile) {
  std::vector<std::jthread> threads(4);
  for (auto& thread : threads) {
    thread = std::jthread(
        [] { EXPECT_TRUE(migratorOf({{"one", "CREATE TABLE log (step)"}}).migrate(*openTest())); });
  }
  threads.clear();
  EXPECT_EQ(stateOf(*openTest()), "one 1 ");
}

}  // namespace
}  // namespace orvane::platform
