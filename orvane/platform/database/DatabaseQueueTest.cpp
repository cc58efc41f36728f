#include <orvane/platform/database/DatabaseQueue.h>

#include "support/Test.h"

namespace orvane::platform {
namespace {

using Integer = Result<std::optional<std::int64_t>>;

fs::path file() { return testDirectory() / "test.sqlite"; }

Result<void> prepare(Database& database) {
  if (auto done = database.execute("PRAGMA journal_mode=WAL"); !done) return done;
  return database.execute("CREATE TABLE IF NOT EXISTS t (v UNIQUE)");
}

std::unique_ptr<DatabaseQueue> openTest() { return DatabaseQueue::open(file(), prepare).value(); }

Result<void> insert(Database& database, const DatabaseValue& value) {
  return database.execute("INSERT INTO t VALUES (?)", {value});
}

Integer count(Database& database) { return database.fetchInteger("SELECT COUNT(*) FROM t"); }

std::int64_t countIn(DatabaseQueue& queue) { return queue.read(count).value().value(); }

TEST(DatabaseQueue, TextsAndBytesSurviveAsTheyAre) {
  const auto queue = openTest();
  for (const auto text :
       {""sv, "a\0b"sv, "\0"sv, "\xff\xfe broken"sv, "naïve \xf0\x9f\x98\x80"sv}) {
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
  const auto column = queue->read([](Database& database) {
    return database.forEachRow("SELECT v FROM t", {}, {"w"}, [](const DatabaseRow&) {});
  });
  EXPECT_EQ(column.error().code(), 25);
}

TEST(DatabaseQueue, WhatCannotBeOpenedIsAnError) {
  const auto folder = testDirectory();
  for (const auto& path : {fs::path(), folder, folder / "missing" / "f", folder / "a\0b"sv}) {
    const auto opened = DatabaseQueue::open(path, prepare);
    ASSERT_FALSE(opened) << path;
    EXPECT_EQ(opened.error().code() & 0xff, 14) << path;
  }
  EXPECT_FALSE(
      DatabaseQueue::open(file(), [](Database& database) { return database.execute("WRONG"); }));
}
TEST(DatabaseQueue, AWriteIsAllOrNothing) {
  const auto queue = openTest();
  const auto one = std::int64_t{1};
  const auto failed = queue->write([&](Database& database) -> Result<void> {
    EXPECT_TRUE(insert(database, one));
    return insert(database, one);
  });
  EXPECT_EQ(failed.error().code(), 2067) << "the extended code";
  EXPECT_EQ(countIn(*openTest()), 0);

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
TEST(DatabaseQueue, AWriteHasTheLockFromItsBeginning) {
  const auto queue = openTest();
  const auto impatient = DatabaseQueue::open(file(), [](Database& database) {
                           return database.execute("PRAGMA busy_timeout=0");
                         }).value();
  const auto begun = queue->write([&](Database&) -> Result<void> {
    const auto refused = impatient->write([](Database&) -> Result<void> {
      ADD_FAILURE() << "two have begun to write";
      return {};
    });
    EXPECT_EQ(refused.error().code(), 5);
    return {};
  });
  EXPECT_TRUE(begun);
}
TEST(DatabaseQueue, AReadSeesOneSnapshotAndChangesNothing) {
  const auto queue = openTest();
  const auto seen = queue->read([](Database& database) -> Integer {
    EXPECT_EQ(count(database).value(), 0);
    EXPECT_TRUE(openTest()->write([](Database& there) { return insert(there, "new"sv); }));
    EXPECT_EQ(insert(database, "refused"sv).error().code(), 8);
    return count(database);
  });
  EXPECT_EQ(seen.value(), 0);
  EXPECT_EQ(countIn(*queue), 1);
}
TEST(DatabaseQueue, ColumnsAreThoseOfThePresentSchema) {
  const auto queue = openTest();
  const auto read = [&](std::string_view column) {
    return queue->read([&](Database& database) {
      return database.fetchOne("SELECT * FROM t", {}, {column},
                               [](const DatabaseRow& row) { return row.integer(0); });
    });
  };
  ASSERT_TRUE(queue->write([](Database& database) { return insert(database, std::int64_t{7}); }) &&
              openTest()->write([](Database& database) {
                return database.execute("ALTER TABLE t RENAME COLUMN v TO w");
              }));
  EXPECT_EQ(read("w").value(), 7);
  EXPECT_EQ(read("v").error().code(), 25);
}

TEST(DatabaseQueue, ABlockCannotCallItsOwnQueue) {
  const auto queue = openTest();
  const auto inner = queue->write([&](Database& database) -> Integer {
    EXPECT_TRUE(insert(database, "x"sv));
    return queue->read(count);
  });
  EXPECT_EQ(inner.error().code(), 21);
  EXPECT_EQ(countIn(*queue), 0);
}

TEST(DatabaseQueue, AVisitorMayRunTheSameStatement) {
  const auto queue = openTest();
  std::string seen;
  const auto forEach = [](Database& database, const auto& visit) {
    return database.forEachRow("VALUES (1), (2)", {}, {},
                               [&](const DatabaseRow& row) { visit(row.integer(0)); });
  };
  EXPECT_TRUE(queue->read([&](Database& database) {
    return forEach(database, [&](std::int64_t outer) {
      EXPECT_TRUE(forEach(
          database, [&](std::int64_t inner) { seen += std::to_string(10 * outer + inner) + ' '; }));
    });
  }));
  EXPECT_EQ(seen, "11 12 21 22 ");
}
TEST(DatabaseQueue, ThreadsTakeTurns) {
  const auto queue = openTest();
  std::vector<std::jthread> threads(4);
  for (auto& thread : threads) {
    thread = std::jthread([&] {
      for (int round = 0; round < 25; ++round) {
        EXPECT_TRUE(queue->write(
            [](Database& database) { return insert(database, count(database).value().value()); }));
      }
    });
  }
  threads.clear();
  EXPECT_EQ(countIn(*queue), 100);
}
}  // namespace
}  // namespace orvane::platform
