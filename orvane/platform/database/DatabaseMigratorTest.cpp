#include <orvane/platform/database/DatabaseMigrator.h>

#include "support/Test.h"

namespace orvane::platform {
namespace {

std::unique_ptr<DatabaseQueue> openTest() {
  return DatabaseQueue::open(
             testing::testDirectory() / "test.sqlite",
             [](Database& database) { return database.execute("PRAGMA busy_timeout=10000"); })
      .value();
}

DatabaseMigrator::Step running(std::string_view statement) {
  return [statement](Database& database) { return database.execute(statement); };
}

DatabaseMigrator firstTwo() {
  DatabaseMigrator migrator;
  migrator.add("one", running("CREATE TABLE log (step TEXT)"));
  migrator.add("two", running("INSERT INTO log VALUES ('two')"));
  return migrator;
}

std::string column(DatabaseQueue& queue, std::string_view statement) {
  std::string all;
  EXPECT_TRUE(queue.read([&](Database& database) {
    return database.forEachRow(statement, {}, {},
                               [&](const DatabaseRow& row) { all.append(row.text(0)) += ' '; });
  }));
  return all;
}

constexpr std::string_view kApplied = "SELECT identifier FROM grdb_migrations ORDER BY rowid";

TEST(DatabaseMigrator, AppliesEachStepOnceInOrder) {
  const auto queue = openTest();
  ASSERT_TRUE(firstTwo().migrate(*queue));
  auto longer = firstTwo();
  longer.add("three", running("INSERT INTO log VALUES ('three')"));
  ASSERT_TRUE(longer.migrate(*queue));
  EXPECT_EQ(column(*queue, kApplied), "one two three ");
  EXPECT_EQ(column(*queue, "SELECT step FROM log"), "two three ");
  EXPECT_EQ(column(*queue, "SELECT sql FROM sqlite_master WHERE name = 'grdb_migrations'"),
            "CREATE TABLE grdb_migrations (identifier TEXT NOT NULL PRIMARY KEY) ");
  const auto other = openTest();
  const auto meanwhile = other->write([&](Database&) { return longer.migrate(*queue); });
  EXPECT_TRUE(meanwhile) << "nothing to apply needs no lock";
}

TEST(DatabaseMigrator, AStepThatFailsChangesNothing) {
  const auto queue = openTest();
  auto broken = firstTwo();
  broken.add("three", [](Database& database) -> Result<void> {
    if (auto done = database.execute("CREATE TABLE half (x)"); !done) return done;
    return database.execute("CREATE TABLE log (x)");
  });
  broken.add("four", running("INSERT INTO log VALUES ('four')"));
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(broken.migrate(*queue).error().domain(), Error::kDatabase);
    EXPECT_EQ(column(*queue, kApplied), "one two ");
    EXPECT_EQ(column(*queue, "SELECT step FROM log"), "two ");
    EXPECT_FALSE(
        queue->read([](Database& database) { return database.tableExists("half"); }).value());
  }
}

TEST(DatabaseMigrator, SeveralMayMigrateOneFile) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] { EXPECT_TRUE(firstTwo().migrate(*openTest())); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(column(*openTest(), "SELECT step FROM log"), "two ");
}

}  // namespace
}  // namespace orvane::platform
