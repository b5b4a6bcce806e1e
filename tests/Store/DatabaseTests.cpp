#include "Store/Database.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <stdexcept>

using namespace keepery;
using Value = Database::Value;

namespace {

class DatabaseTest : public ::testing::Test {
protected:
    keepery::testing::TemporaryDirectory dir;
    Database db{(dir / "test.sqlite").string()};
};

} // namespace

TEST_F(DatabaseTest, OpensANewFileWithTheConnectionSettings) {
    EXPECT_TRUE(std::filesystem::exists(dir / "test.sqlite"));
    EXPECT_EQ(db.userVersion(), 0);
    EXPECT_EQ(db.query("PRAGMA journal_mode")[0].at("journal_mode"), Value("wal"));
    EXPECT_EQ(db.query("PRAGMA foreign_keys")[0].at("foreign_keys"), Value(1));
    EXPECT_EQ(db.query("PRAGMA synchronous")[0].at("synchronous"), Value(1)); // NORMAL
    db.setUserVersion(2);
    EXPECT_EQ(db.userVersion(), 2);
    db.setUserVersion(-3);
    EXPECT_EQ(db.userVersion(), -3);
}

TEST(Database, OpeningAnImpossiblePathFailsWithTheOpenStatement) {
    keepery::testing::TemporaryDirectory dir;
    const std::string path = (dir / "missing" / "db.sqlite").string();
    try {
        Database db(path);
        FAIL() << "opened " << path;
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.sql(), "open " + path);
        EXPECT_EQ(failure.message(), "unable to open database file");
        EXPECT_EQ(std::string(failure.what()), "SQLite: unable to open database file \u2014 open " + path);
    }
}

TEST_F(DatabaseTest, ValuesRoundTripByStorageClass) {
    db.execute("CREATE TABLE t (a, b, c, d, e)");
    const Database::Blob bytes{0, 1, 2, 255};
    EXPECT_EQ(
        db.run("INSERT INTO t VALUES (?, ?, ?, ?, ?)",
               {Value(std::int64_t{1} << 62), Value(2.5), Value("caf\u00E9"), Value(bytes), Value::null()}),
        1);
    const auto rows = db.query("SELECT * FROM t");
    ASSERT_EQ(rows.size(), 1u);
    const auto& row = rows[0];
    EXPECT_EQ(row.at("a").asInt(), std::int64_t{1} << 62);
    EXPECT_EQ(row.at("a").asDouble(), static_cast<double>(std::int64_t{1} << 62)); // only double widens
    EXPECT_EQ(row.at("b").asInt(), std::nullopt);
    EXPECT_EQ(row.at("b").asDouble(), 2.5);
    EXPECT_EQ(row.at("c").asText(), "caf\u00E9");
    EXPECT_EQ(row.at("c").asInt(), std::nullopt);
    EXPECT_EQ(row.at("d").asBlob(), bytes);
    const Value& null = row.at("e");
    EXPECT_TRUE(null.isNull() && !null.asText() && !null.asInt() && !null.asDouble() && !null.asBlob());
    EXPECT_EQ(Value(std::optional<std::string>()), Value::null());
    EXPECT_EQ(Value(std::optional<std::string>("x")), Value("x"));
    EXPECT_NE(Value(1), Value(1.0));
}

TEST_F(DatabaseTest, EmptyBlobsStayBlobsAndTextStopsAtNul) {
    db.execute("CREATE TABLE t (v)");
    db.run("INSERT INTO t VALUES (?)", {Value(Database::Blob{})});
    db.run("INSERT INTO t VALUES (?)", {Value(std::string("ab\0cd", 5))});
    db.execute("INSERT INTO t VALUES (CAST(x'610062' AS TEXT))");
    const auto rows = db.query("SELECT v, typeof(v) AS type FROM t ORDER BY rowid");
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].at("type"), Value("blob"));
    EXPECT_EQ(rows[0].at("v"), Value(Database::Blob{}));
    EXPECT_EQ(rows[1].at("v"), Value("ab"));
    EXPECT_EQ(rows[2].at("v"), Value("a"));
}

TEST_F(DatabaseTest, BindsByPositionAndNamesColumnsByAlias) {
    // Missing values bind NULL; extra values are ignored.
    auto rows = db.query("SELECT ? AS one, ? AS two", {Value(1)});
    EXPECT_EQ(rows[0].at("one"), Value(1));
    EXPECT_TRUE(rows[0].at("two").isNull());
    rows = db.query("SELECT ? AS one", {Value(1), Value(2), Value(3)});
    EXPECT_EQ(rows[0].at("one"), Value(1));
    // Two columns with one name: the later one wins.
    rows = db.query("SELECT 1 AS x, 'later' AS x");
    ASSERT_EQ(rows[0].size(), 1u);
    EXPECT_EQ(rows[0].at("x"), Value("later"));
    EXPECT_TRUE(db.query("SELECT 1 WHERE 0").empty());
    // Only the first statement of a text runs.
    db.execute("CREATE TABLE t (v)");
    db.run("INSERT INTO t VALUES (1); INSERT INTO t VALUES (2)");
    EXPECT_EQ(db.query("SELECT count(*) AS n FROM t")[0].at("n"), Value(1));
    // A statement that returns rows succeeds after its first one.
    EXPECT_NO_THROW(db.run("SELECT v FROM t"));
    db.run("INSERT INTO t VALUES (3)");
    EXPECT_EQ(db.lastInsertRowID(), 2);
    EXPECT_EQ(db.run("UPDATE t SET v = v + 1"), 2);
}

TEST_F(DatabaseTest, FailuresCarryTheWholeStatementAndCutTheirTextForm) {
    const std::string longStatement = "SELEKT " + std::string(200, 'x');
    try {
        (void)db.query(longStatement);
        FAIL();
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.sql(), longStatement);
        const std::string text = failure.description();
        EXPECT_TRUE(text.starts_with("SQLite: near \"SELEKT\": syntax error \u2014 SELEKT xxx")) << text;
        EXPECT_EQ(text.substr(text.find("\u2014 ") + std::string("\u2014 ").size()),
                  longStatement.substr(0, 120));
    }
    try {
        db.execute("CREATE TABLE t (v); BOGUS");
        FAIL();
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.sql(), "CREATE TABLE t (v); BOGUS");
    }
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
    EXPECT_EQ(db.query("SELECT count(*) AS n FROM t")[0].at("n"), Value(1));

    // The inner BEGIN is refused, and the outer body's failure rolls everything back.
    EXPECT_THROW(db.transaction([&] {
        db.run("INSERT INTO t VALUES (3)");
        db.transaction([&] { db.run("INSERT INTO t VALUES (4)"); });
    }),
                 Database::Failure);
    EXPECT_EQ(db.query("SELECT count(*) AS n FROM t")[0].at("n"), Value(1));
    // After all that the connection is out of any transaction.
    EXPECT_NO_THROW(db.transaction([] {}));
}

TEST_F(DatabaseTest, AFailedCommitRollsBackAndThrowsTheCommitFailure) {
    db.execute("CREATE TABLE parent (id PRIMARY KEY);"
               "CREATE TABLE child (p REFERENCES parent(id) DEFERRABLE INITIALLY DEFERRED)");
    try {
        db.transaction([&] { db.run("INSERT INTO child VALUES ('nobody')"); });
        FAIL();
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.sql(), "COMMIT");
        EXPECT_EQ(failure.message(), "FOREIGN KEY constraint failed");
    }
    EXPECT_TRUE(db.query("SELECT * FROM child").empty());
    EXPECT_NO_THROW(db.transaction([] {}));
}

TEST(Database, ASecondConnectionWaitsForTheWriterInsteadOfFailing) {
    keepery::testing::TemporaryDirectory dir;
    Database first((dir / "shared.sqlite").string());
    Database second((dir / "shared.sqlite").string());
    first.execute("CREATE TABLE t (v)");
    first.run("INSERT INTO t VALUES (1)");
    // WAL: a reader sees the committed state while another connection holds a write transaction.
    first.transaction([&] {
        first.run("INSERT INTO t VALUES (2)");
        EXPECT_EQ(second.query("SELECT count(*) AS n FROM t")[0].at("n"), Value(1));
    });
    EXPECT_EQ(second.query("SELECT count(*) AS n FROM t")[0].at("n"), Value(2));
}
