#include "Store/Database.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace keepery::testing {
namespace {

using Value = Database::Value;

class DatabaseTest : public ::testing::Test {
protected:
    std::int64_t count(const std::string& table) {
        return db.query("SELECT count(*) AS n FROM " + table)[0].at("n").asInt().value_or(-1);
    }

    TemporaryDirectory dir;
    Database db{(dir / "test.sqlite").string()};
};

TEST_F(DatabaseTest, OpensWithWriteAheadLoggingAndForeignKeysOrFailsWithTheOpenStatement) {
    EXPECT_EQ(db.query("PRAGMA journal_mode")[0].at("journal_mode"), Value("wal"));
    EXPECT_EQ(db.query("PRAGMA foreign_keys")[0].at("foreign_keys"), Value(1));

    const std::string path = (dir / "missing" / "db.sqlite").string();
    try {
        Database missing(path);
        FAIL() << "opened " << path;
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.sql(), "open " + path);
        EXPECT_EQ(std::string(failure.what()), "SQLite: unable to open database file \u2014 open " + path);
    }
}

TEST_F(DatabaseTest, ValuesRoundTripByStorageClassAndTextStopsAtNul) {
    db.execute("CREATE TABLE t (v)");
    for (const Value& value : {Value(std::int64_t{1} << 62), Value(2.5), Value("caf\u00E9"),
                               Value(Database::Blob{0, 1, 2, 255}), Value(Database::Blob{}), Value::null()}) {
        db.run("DELETE FROM t");
        db.run("INSERT INTO t VALUES (?)", {value});
        EXPECT_EQ(db.query("SELECT v FROM t")[0].at("v"), value);
    }
    EXPECT_EQ(Value(std::int64_t{1} << 62).asDouble(), static_cast<double>(std::int64_t{1} << 62))
        << "only double widens";
    EXPECT_EQ(Value(2.5).asInt(), std::nullopt);
    EXPECT_EQ(Value("1").asInt(), std::nullopt);
    db.run("INSERT INTO t VALUES (?)", {Value(std::string("ab\0cd", 5))});
    db.execute("INSERT INTO t VALUES (CAST(x'610062' AS TEXT))");
    const auto rows = db.query("SELECT v FROM t WHERE typeof(v) = 'text' ORDER BY rowid");
    EXPECT_EQ(rows, (std::vector<Database::Row>{{{"v", Value("ab")}}, {{"v", Value("a")}}}));
}

TEST_F(DatabaseTest, BindsByPositionAndNamesColumnsByAlias) {
    // Missing values bind NULL; extra values are ignored.
    auto rows = db.query("SELECT ? AS one, ? AS two", {Value(1)});
    EXPECT_EQ(rows[0].at("one"), Value(1));
    EXPECT_TRUE(rows[0].at("two").isNull());
    EXPECT_EQ(db.query("SELECT ? AS one", {Value(1), Value(2), Value(3)})[0].at("one"), Value(1));
    // Two columns with one name: the later one wins.
    EXPECT_EQ(db.query("SELECT 1 AS x, 'later' AS x")[0], (Database::Row{{"x", Value("later")}}));
    EXPECT_TRUE(db.query("SELECT 1 WHERE 0").empty());
    // Only the first statement of a text runs.
    db.execute("CREATE TABLE t (v)");
    db.run("INSERT INTO t VALUES (1); INSERT INTO t VALUES (2)");
    EXPECT_EQ(count("t"), 1);
    // A statement that returns rows succeeds after its first one.
    EXPECT_NO_THROW(db.run("SELECT v FROM t"));
    EXPECT_EQ(db.run("UPDATE t SET v = v + 1"), 1);
}

TEST_F(DatabaseTest, FailuresCarryTheWholeStatementAndCutTheirTextForm) {
    const std::string longStatement = "SELEKT " + std::string(200, 'x');
    try {
        (void)db.query(longStatement);
        FAIL();
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.sql(), longStatement);
        EXPECT_EQ(failure.description(),
                  "SQLite: near \"SELEKT\": syntax error \u2014 " + longStatement.substr(0, 120));
    }
    EXPECT_THROW(db.execute("CREATE TABLE t (v); BOGUS"), Database::Failure);
    // A step failure reads the message before finalizing; the connection stays usable.
    db.execute("CREATE TABLE u (v NOT NULL)");
    try {
        db.run("INSERT INTO u VALUES (NULL)");
        FAIL();
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.message(), "NOT NULL constraint failed: u.v");
    }
    EXPECT_EQ(db.query("SELECT 7 AS n")[0].at("n"), Value(7));
}

TEST_F(DatabaseTest, TransactionsCommitRollBackAndDoNotNest) {
    db.execute("CREATE TABLE t (v)");
    EXPECT_EQ(db.transaction([&] {
        db.run("INSERT INTO t VALUES (1)");
        return 42;
    }),
              42);
    EXPECT_THROW(db.transaction([&] {
        db.run("INSERT INTO t VALUES (2)");
        throw std::runtime_error("body failed");
    }),
                 std::runtime_error);
    // The inner BEGIN is refused, and the outer body's failure rolls everything back.
    EXPECT_THROW(db.transaction([&] {
        db.run("INSERT INTO t VALUES (3)");
        db.transaction([&] { db.run("INSERT INTO t VALUES (4)"); });
    }),
                 Database::Failure);
    EXPECT_EQ(count("t"), 1);

    // A failed commit rolls back and throws the commit's failure.
    db.execute("CREATE TABLE parent (id PRIMARY KEY);"
               "CREATE TABLE child (p REFERENCES parent(id) DEFERRABLE INITIALLY DEFERRED)");
    try {
        db.transaction([&] { db.run("INSERT INTO child VALUES ('nobody')"); });
        FAIL();
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.sql(), "COMMIT");
        EXPECT_EQ(failure.message(), "FOREIGN KEY constraint failed");
    }
    EXPECT_EQ(count("child"), 0);
    EXPECT_NO_THROW(db.transaction([] {})) << "a transaction was left open";
}

} // namespace
} // namespace keepery::testing
