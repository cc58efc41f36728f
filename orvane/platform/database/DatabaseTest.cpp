#include <orvane/platform/database/DatabaseMigrator.h>

#include "support/Test.h"

namespace orvane::platform {
namespace {

using Integer = Result<std::optional<std::int64_t>>;

std::unique_ptr<DatabaseQueue> openTest(const char* preparation = "PRAGMA busy_timeout=10000") {
  return DatabaseQueue::open(
             testDirectory() / "test.sqlite",
             [preparation](Database& database) {
               EXPECT_TRUE(database.execute("PRAGMA journal_mode=WAL"));
               EXPECT_TRUE(database.execute("CREATE TABLE IF NOT EXISTS t (v UNIQUE)"));
               return database.execute(preparation);
             })
      .value();
}

Result<void> insert(Database& database, const DatabaseValue& value) {
  return database.execute("INSERT INTO t VALUES (?)", {value});
}

Integer count(Database& database) { return database.fetchInteger("SELECT COUNT(*) FROM t"); }

std::int64_t countIn(DatabaseQueue& queue) { return queue.read(count).value().value(); }

TEST(DatabaseQueue, TextsAndBytesSurviveAsTheyAre) {
  const auto queue = openTest();
  for (const auto text : {""sv, "a\0b"sv, "\xff\xfe broken"sv, "naïve \xf0\x9f\x98\x80"sv}) {
    const auto seen = queue->write([&](Database& database) -> Result<std::optional<std::string>> {
      EXPECT_TRUE(database.execute("DELETE FROM t") && insert(database, text));
      return database.fetchOne("SELECT v, typeof(v) AS kind FROM t", {}, {"kind", "v"},
                               [](const DatabaseRow& row) {
                                 return std::string(row.text(0)) + ':' + std::string(row.text(1));
                               });
    });
    EXPECT_EQ(seen.value(), "text:" + std::string(text));
  }
}

TEST(DatabaseQueue, MistakesAreErrors) {
  const auto queue = openTest();
  const struct {
    std::string_view statement;
    DatabaseArguments arguments;
    std::int64_t code;
  } cases[] = {
      {"INSERT INTO t VALUES (1)\0; DROP TABLE t"sv, {}, 21},
      {"DELETE FROM t; DROP TABLE t", {}, 21},
      {"  ", {}, 21},
      {"SELECT ?", {}, 25},
      {"SELECT 1", {std::int64_t{1}}, 25},
      {"SELECT * FROM missing", {}, 1},
  };
  for (const auto& [statement, arguments, code] : cases) {
    const auto done =
        queue->write([&](Database& database) { return database.execute(statement, arguments); });
    ASSERT_FALSE(done) << statement;
    EXPECT_EQ(done.error().domain(), Error::kDatabase);
    EXPECT_EQ(done.error().code(), code) << done.error().description();
  }
  const auto inner = queue->write([&](Database& database) -> Integer {
    EXPECT_TRUE(insert(database, "x"sv));
    return queue->read(count);
  });
  EXPECT_EQ(inner.error().code(), 21) << "a block cannot call its own queue";
  EXPECT_EQ(countIn(*queue), 0);
  for (const auto& path : {fs::path(), testDirectory(), testDirectory() / "a\0b"sv}) {
    EXPECT_EQ(DatabaseQueue::open(path).error().code() & 0xff, 14) << path;
  }
}

TEST(DatabaseQueue, AWriteIsAllOrNothing) {
  const auto queue = openTest();
  const auto one = std::int64_t{1};
  const auto failed = queue->write([&](Database& database) -> Result<void> {
    EXPECT_TRUE(insert(database, one));
    return insert(database, one);
  });
  EXPECT_EQ(failed.error().code(), 2067) << "the extended code";
  EXPECT_EQ(openTest("PRAGMA busy_timeout=0")->write(count).value(), 0) << "nothing is held";

  const auto passedOver = queue->write([&](Database& database) -> Result<void> {
    EXPECT_TRUE(insert(database, one));
    EXPECT_FALSE(insert(database, one));
    return insert(database, std::int64_t{2});
  });
  EXPECT_TRUE(passedOver) << "a block may pass over a row that fails";
  EXPECT_EQ(countIn(*queue), 2);

  // As after an error for which SQLite itself rolls back.
  const auto lost = queue->write([&](Database& database) -> Result<void> {
    EXPECT_TRUE(database.execute("ROLLBACK"));
    EXPECT_EQ(insert(database, std::int64_t{3}).error().code(), 516);
    return {};
  });
  EXPECT_FALSE(lost);
  EXPECT_EQ(countIn(*queue), 2);
}

TEST(DatabaseQueue, AWriteHasTheLockAndAReadOneSnapshotFromTheBeginning) {
  const auto queue = openTest();
  const auto impatient = openTest("PRAGMA busy_timeout=0");
  EXPECT_TRUE(queue->write([&](Database&) -> Result<void> {
    const auto refused = impatient->write([](Database&) { return Result<void>(); });
    EXPECT_EQ(refused.error().code(), 5);
    return {};
  }));
  const auto seen = queue->read([&](Database& database) -> Integer {
    EXPECT_EQ(count(database).value(), 0);
    EXPECT_TRUE(impatient->write([](Database& there) { return insert(there, "new"sv); }));
    EXPECT_EQ(insert(database, "refused"sv).error().code(), 8);
    return count(database);
  });
  EXPECT_EQ(seen.value(), 0);
  EXPECT_EQ(countIn(*queue), 1);
}

DatabaseMigrator migratorOf(const std::vector<const char*>& steps) {
  DatabaseMigrator migrator;
  for (const auto* const step : steps) {
    migrator.add(step, [step](Database& database) -> Result<void> {
      EXPECT_TRUE(insert(database, std::string_view(step)));
      return database.execute(step);
    });
  }
  return migrator;
}

TEST(DatabaseMigrator, AppliesEachStepOnceInOrderOrNotAtAll) {
  const auto* const one = "CREATE TABLE one (x)";
  const auto* const two = "ALTER TABLE one RENAME TO two";
  const struct {
    std::vector<const char*> steps;
    bool succeeds;
    std::int64_t applied;
  } cases[] = {{{one}, true, 1},
               {{one, two}, true, 2},
               {{one, two, "CREATE TABLE two (x)", "SELECT 1"}, false, 2},
               {{one, two, "SELECT 1"}, true, 3}};
  for (const auto& [steps, succeeds, applied] : cases) {
    std::vector<std::jthread> threads(4);  // As several processes that start at once.
    for (auto& thread : threads) {
      thread = std::jthread([&steps, succeeds] {
        EXPECT_EQ(migratorOf(steps).migrate(*openTest()).has_value(), succeeds);
      });
    }
    threads.clear();
    EXPECT_EQ(countIn(*openTest()), applied);
  }
  EXPECT_TRUE(openTest()->write([&](Database&) {
    return migratorOf({one, two}).migrate(*openTest("PRAGMA busy_timeout=0"));
  })) << "nothing to apply needs no lock";
}

}  // namespace
}  // namespace orvane::platform
