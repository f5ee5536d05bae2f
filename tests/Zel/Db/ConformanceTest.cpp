// The same cases on every backend: what a caller of Zel::Db sees must not depend on the engine
// behind the connection, except where an engine itself lacks a feature (noted at the case).

#include "TestDatabase.h"

#include <Zel/Db/Connection.h>
#include <Zel/Db/DbException.h>
#include <Zel/InvalidOperationException.h>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace ZelTest {
namespace {

using Zel::Date;
using Zel::DateTime;
using Zel::LongBinary;
using Zel::Time;
using Zel::Variant;
using Zel::Db::DbException;

std::string text(const Variant& value) {
    return static_cast<std::string>(value);
}

std::string longText(std::size_t size) {
    std::string result(size, ' ');
    for (std::size_t i = 0; i < size; ++i)
        result[i] = static_cast<char>('!' + i % 90);
    return result;
}

class ConformanceTest : public ::testing::TestWithParam<Backend> {
protected:
    void SetUp() override {
        m_database = GetParam().make();
        if (!m_database) GTEST_SKIP() << GetParam().name << " is not part of this build";
        m_db = Zel::Db::Connection::create(m_database->connectionString());
        m_db->execute("CREATE TABLE item (id INTEGER NOT NULL PRIMARY KEY, name VARCHAR(20), amount " +
                      type("DOUBLE") + ")");
    }

    std::string type(std::string_view portable) const { return m_database->type(portable); }
    bool is(std::string_view name) const { return m_database->name() == name; }
    std::int64_t count(Zel::Db::Connection& db, const std::string& where = "1=1") {
        return static_cast<std::int64_t>(db.scalar("SELECT COUNT(*) FROM item WHERE " + where));
    }
    std::int64_t count(const std::string& where = "1=1") { return count(*m_db, where); }

    std::unique_ptr<TestDatabase> m_database;
    std::unique_ptr<Zel::Db::Connection> m_db;
};

TEST_P(ConformanceTest, EveryValueTypeRoundTrips) {
    struct Case {
        std::string column;
        Variant value;
        Variant expected; // null: the value itself
        bool anyNumber = false;
    };
    Variant map = Variant::makeMap();
    map.setAt("name", "tea").setAt("qty", 3);
    Variant vector = Variant::makeVector();
    vector.push_back(1);
    vector.push_back("two");
    const std::vector<Case> cases = {
        {"INTEGER", Variant(), {}},
        {type("BOOLEAN"), true, {}},
        {type("BOOLEAN"), false, {}},
        {"SMALLINT", static_cast<unsigned char>(255), static_cast<short>(255)},
        {"SMALLINT", std::numeric_limits<short>::min(), {}},
        {"SMALLINT", std::numeric_limits<short>::max(), {}},
        {"INTEGER", std::numeric_limits<int>::min(), {}},
        {"INTEGER", std::numeric_limits<int>::max(), {}},
        {"BIGINT", std::numeric_limits<std::int64_t>::min(), {}},
        {"BIGINT", std::numeric_limits<std::int64_t>::max(), {}},
        {"REAL", -0.15625f, {}, true},
        {type("DOUBLE"), 1.0 / 3.0, {}},
        {type("DOUBLE"), -2.5e-300, {}},
        {"DATE", Date(2026, 11, 24), {}},
        {"DATE", Date(1970, 1, 1), {}},
        {"TIME", Time(0, 0, 0), {}},
        {"TIME", Time(23, 59, 59), {}},
        {"TIMESTAMP", DateTime(Date(2026, 11, 24), Time(10, 30, 5)), {}},
        {"TIMESTAMP", DateTime(Date(2038, 1, 19), Time(3, 14, 7)), {}},
        {type("TEXT"), "", {}},
        {type("TEXT"), "Grüße aus 東京 🎉", {}},
        {type("TEXT"), longText(1 << 20), {}},
        {type("TEXT"), map, map.toJson()},
        {type("TEXT"), vector, vector.toJson()},
        {type("BINARY"), LongBinary(), {}},
        {type("BINARY"), everyByte(1 << 20), {}},
    };
    std::string create = "CREATE TABLE value_types (id INTEGER NOT NULL PRIMARY KEY";
    for (std::size_t i = 0; i < cases.size(); ++i)
        create += ", c" + std::to_string(i) + " " + cases[i].column;
    m_db->execute(create + ")");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(testing::Message() << "case " << i << ": " << c.column);
        const std::string column = "c" + std::to_string(i);
        m_db->execute("INSERT INTO value_types (id, " + column + ") VALUES (?, ?)",
                      {static_cast<int>(i), c.value});
        const Variant read =
            m_db->scalar("SELECT " + column + " FROM value_types WHERE id = ?", {static_cast<int>(i)});
        const bool lossy = is("sqlite") && read.type() == Variant::Type::Double;
        EXPECT_TRUE(
            same(read, c.expected.isNull() ? c.value : c.expected, c.anyNumber || lossy, lossy ? 1e-14 : 0));
    }
}

TEST_P(ConformanceTest, ExactDecimalsAndFractionsOfSecondsReadAsText) {
    struct Case {
        std::string column;
        std::string literal;
        Variant expected;
        // SQLite keeps no exact decimals: its driver reads NUMERIC as double and DECIMAL as text.
        Variant sqliteExpected;
        bool textWithZeros = false; // the text may go on with zeros ("...00.125" or "...00.1250")
    };
    const std::vector<Case> cases = {
        {"NUMERIC(10,2)", "12.50", "12.50", 12.5},
        {"NUMERIC(18,4)", "-0.0001", "-0.0001", -0.0001},
        {"NUMERIC(18,0)", "123456789012345678", std::int64_t{123456789012345678}, 123456789012345678.0},
        {"DECIMAL(9,0)", "-42", std::int64_t{-42}, "-42"},
        {"TIMESTAMP", "'2026-11-24 10:30:00.125'", "2026-11-24 10:30:00.125", {}, true},
        {"TIMESTAMP", "'2026-11-24 10:30:00.000'", DateTime(Date(2026, 11, 24), Time(10, 30, 0)), {}},
        {"TIME", "'10:30:00.5'", "10:30:00.5", {}, true},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(testing::Message() << c.column << " " << c.literal);
        const std::string table = "exact" + std::to_string(i);
        m_db->execute("CREATE TABLE " + table + " (v " + c.column + ")");
        m_db->execute("INSERT INTO " + table + " (v) VALUES (" + c.literal + ")");
        const Variant read = m_db->scalar("SELECT v FROM " + table);
        const Variant& expected = is("sqlite") && !c.sqliteExpected.isNull() ? c.sqliteExpected : c.expected;
        if (c.textWithZeros) {
            ASSERT_EQ(read.type(), Variant::Type::String);
            const std::string got = text(read), want = text(expected);
            EXPECT_EQ(got.substr(0, want.size()), want);
            EXPECT_EQ(got.find_first_not_of('0', want.size()), std::string::npos) << got;
        } else {
            const bool lossy = is("sqlite") && read.type() == Variant::Type::Double;
            EXPECT_TRUE(same(read, expected, lossy, 1e-14));
        }
    }
}

TEST_P(ConformanceTest, RecordsetsReadByIndexAndNameInAnyOrder) {
    m_db->execute("INSERT INTO item (id, name, amount) VALUES (?, ?, ?)", {1, "tea", 2.5});
    m_db->execute("INSERT INTO item (id, name, amount) VALUES (?, ?, ?)", {2, Variant(), 4.0});

    auto rows = m_db->query("SELECT id, name, amount FROM item ORDER BY id");
    ASSERT_EQ(rows->columnCount(), 3u);
    const std::vector<std::pair<std::string, Variant::Type>> columns = {
        {"id", Variant::Type::Int32}, {"name", Variant::Type::String}, {"amount", Variant::Type::Double}};
    for (std::size_t i = 0; i < columns.size(); ++i) {
        EXPECT_EQ(rows->columnIndex(columns[i].first), i);
        EXPECT_EQ(rows->columnType(i), columns[i].second) << columns[i].first;
    }
    ASSERT_FALSE(rows->eof());
    EXPECT_EQ(text(rows->value("NAME")), "tea"); // a later column first
    EXPECT_TRUE(same(rows->value(std::size_t{0}), 1));
    EXPECT_TRUE(same(rows->value("Amount"), 2.5));
    EXPECT_EQ(text(rows->value(1)), "tea"); // again: values stay readable
    const Variant row = rows->row();
    EXPECT_EQ(row.size(), 3u);
    EXPECT_EQ(text(row[rows->columnName(1)]), "tea");
    EXPECT_THROW(rows->value("nope"), DbException);
    EXPECT_THROW(rows->value(3), DbException);

    EXPECT_TRUE(rows->next());
    EXPECT_TRUE(same(rows->value("id"), 2));
    EXPECT_TRUE(rows->value("name").isNull());
    EXPECT_FALSE(rows->next());
    EXPECT_TRUE(rows->eof());
    EXPECT_THROW(rows->value(std::size_t{0}), DbException);
    EXPECT_THROW(rows->next(), DbException);

    auto none = m_db->query("SELECT id FROM item WHERE id > ?", {5});
    EXPECT_TRUE(none->eof());
    EXPECT_EQ(none->columnCount(), 1u);
    EXPECT_THROW(none->next(), DbException);
    EXPECT_TRUE(m_db->scalar("SELECT name FROM item WHERE id > ?", {5}).isNull());
    EXPECT_EQ(count(), 2);
}

TEST_P(ConformanceTest, InsertReturningGivesTheRowAndInserts) {
    auto rows = m_db->query("INSERT INTO item (id, name) VALUES (?, ?) RETURNING id, name", {7, "tea"});
    ASSERT_FALSE(rows->eof());
    EXPECT_TRUE(same(rows->value("id"), 7));
    EXPECT_EQ(text(rows->value("name")), "tea");
    EXPECT_FALSE(rows->next());
    // Run without reading the rows, it still inserts.
    m_db->execute("INSERT INTO item (id, name) VALUES (?, ?) RETURNING id", {8, "rice"});
    EXPECT_EQ(count(), 2);
}

TEST_P(ConformanceTest, TransactionsCommitRollBackAndNestSavepoints) {
    auto other = Zel::Db::Connection::create(m_database->connectionString());
    m_db->begin();
    EXPECT_TRUE(m_db->inTransaction());
    m_db->execute("INSERT INTO item (id) VALUES (1)");
    m_db->commit();
    EXPECT_FALSE(m_db->inTransaction());
    EXPECT_EQ(count(*other, "id = 1"), 1);

    m_db->begin();
    m_db->execute("INSERT INTO item (id) VALUES (2)");
    m_db->rollback();
    EXPECT_EQ(count("id = 2"), 0);

    m_db->begin();
    m_db->execute("INSERT INTO item (id) VALUES (3)");
    m_db->savepoint("sp1");
    m_db->execute("INSERT INTO item (id) VALUES (4)");
    m_db->rollbackToSavepoint("sp1");
    m_db->execute("INSERT INTO item (id) VALUES (5)");
    m_db->releaseSavepoint("sp1");
    m_db->commit();
    EXPECT_EQ(count("id IN (3, 4, 5)"), 2);
    EXPECT_EQ(count("id = 4"), 0);

    // Autocommit is back: another connection sees a write at once.
    m_db->execute("INSERT INTO item (id) VALUES (6)");
    EXPECT_EQ(count(*other, "id = 6"), 1);

    EXPECT_THROW(m_db->commit(), Zel::InvalidOperationException);
    EXPECT_THROW(m_db->rollback(), Zel::InvalidOperationException);
    EXPECT_THROW(m_db->savepoint("sp2"), Zel::InvalidOperationException);
    m_db->begin();
    EXPECT_THROW(m_db->begin(), Zel::InvalidOperationException);
    m_db->rollback();
}

TEST_P(ConformanceTest, BatchesInsertEveryRow) {
    const Zel::Db::Command insert("INSERT INTO item (id, name, amount) VALUES (?, ?, ?)");
    std::vector<std::vector<Variant>> rows;
    for (int i = 0; i < 500; ++i)
        rows.push_back({i, i % 7 == 0 ? Variant() : Variant("n" + std::to_string(i)), i * 0.5});
    const std::int64_t affected = insert.executeBatch(*m_db, rows);
    EXPECT_TRUE(affected == 500 || affected == -1) << affected;
    EXPECT_EQ(count(), 500);
    EXPECT_EQ(count("name IS NULL"), 72);
    EXPECT_EQ(text(m_db->scalar("SELECT name FROM item WHERE id = ?", {499})), "n499");
    EXPECT_TRUE(same(m_db->scalar("SELECT amount FROM item WHERE id = ?", {499}), 249.5));

    // A column whose rows differ in type, and a text column fed with numbers.
    const std::vector<std::vector<Variant>> mixed = {
        {1000, "a", 1}, {std::int64_t{1001}, "b", 2.5}, {static_cast<short>(1002), "c", Variant()}};
    insert.executeBatch(*m_db, mixed);
    EXPECT_EQ(count("id >= 1000"), 3);
    EXPECT_TRUE(same(m_db->scalar("SELECT amount FROM item WHERE id = ?", {1001}), 2.5));

    EXPECT_EQ(insert.executeBatch(*m_db, {}), 0);
    try {
        insert.executeBatch(*m_db, {{2000, "x", 1.0}, {2001, "y"}});
        ADD_FAILURE() << "a short row was taken";
    } catch (const DbException& e) {
        EXPECT_EQ(std::string(e.what()),
                  "Db: wrong number of parameters | expected=3 | given=2 | sql=" + insert.sql());
    }
    EXPECT_EQ(count("id >= 2000"), 0);
}

TEST_P(ConformanceTest, StatementCacheReusesEvictsAndServesNestedQueries) {
    for (int i = 0; i < 3; ++i)
        m_db->execute("INSERT INTO item (id) VALUES (?)", {i});
    const std::size_t before = m_db->cachedStatementCount();
    for (int i = 0; i < 3; ++i)
        m_db->scalar("SELECT id FROM item WHERE id = ?", {i});
    EXPECT_EQ(m_db->cachedStatementCount(), before + 1);

    // The same text while its first recordset is still open.
    const std::string all = "SELECT id FROM item ORDER BY id";
    std::vector<std::int64_t> pairs;
    for (auto outer = m_db->query(all); !outer->eof(); outer->next())
        for (auto inner = m_db->query(all); !inner->eof(); inner->next())
            pairs.push_back(static_cast<std::int64_t>(outer->value(std::size_t{0})) * 10 +
                            static_cast<std::int64_t>(inner->value(std::size_t{0})));
    EXPECT_EQ(pairs, (std::vector<std::int64_t>{0, 1, 2, 10, 11, 12, 20, 21, 22}));

    m_db->setStatementCacheCapacity(2);
    EXPECT_EQ(m_db->cachedStatementCount(), 2u);
    for (const char* where : {"id = 0", "id = 1", "id = 2", "id = 1"})
        EXPECT_EQ(count(where), 1);
    EXPECT_EQ(m_db->cachedStatementCount(), 2u);
    m_db->setStatementCacheCapacity(0);
    EXPECT_EQ(count(), 3);
    EXPECT_EQ(m_db->cachedStatementCount(), 0u);
}

TEST_P(ConformanceTest, BadStatementsThrowWithTheirPartsAndLeaveTheConnectionWorking) {
    // SQLite takes any value in any column unless the table is STRICT.
    m_db->execute(std::string("CREATE TABLE narrow (v INTEGER, w INTEGER NOT NULL)") +
                  (is("sqlite") ? " STRICT" : ""));
    struct Case {
        std::string sql;
        std::vector<Variant> params;
        std::string message; // exact, for the failures the library finds itself
    };
    const std::vector<Case> cases = {
        {"SELEC id FROM item", {}, {}},
        {"SELECT id FROM no_such_table", {}, {}},
        {"SELECT no_such_column FROM item", {}, {}},
        {"INSERT INTO item (id, name) VALUES (?, ?)",
         {1},
         "Db: wrong number of parameters | expected=2 | given=1 | sql=INSERT INTO item (id, name) VALUES (?, "
         "?)"},
        {"INSERT INTO narrow (v, w) VALUES (?, 1)",
         {is("sqlite") ? Variant("not a number") : Variant(std::int64_t{1} << 40)},
         {}},
        {"INSERT INTO narrow (v, w) VALUES (1, ?)", {Variant()}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sql);
        try {
            m_db->execute(c.sql, c.params);
            ADD_FAILURE() << "no exception";
        } catch (const DbException& e) {
            EXPECT_EQ(e.sql(), c.sql);
            if (!c.message.empty()) {
                EXPECT_EQ(std::string(e.what()), c.message);
            } else {
                EXPECT_FALSE(e.driverMessage().empty());
                EXPECT_EQ(e.sqlState().size(), 5u) << e.what();
                EXPECT_EQ(std::string(e.what()).rfind("Db: ", 0), 0u) << e.what();
                EXPECT_NE(std::string(e.what()).find(" | error=" + e.driverMessage()), std::string::npos);
            }
        }
        m_db->execute("INSERT INTO item (id) VALUES (?)", {42});
        EXPECT_EQ(count("id = 42"), 1);
        m_db->execute("DELETE FROM item");
    }
    EXPECT_EQ(count(*m_db, "1=1"), 0);
    EXPECT_EQ(static_cast<std::int64_t>(m_db->scalar("SELECT COUNT(*) FROM narrow")), 0);
}

TEST_P(ConformanceTest, CloseRollsBackAndRetiresOpenRecordsets) {
    m_db->execute("INSERT INTO item (id) VALUES (1)");
    m_db->execute("INSERT INTO item (id) VALUES (2)");
    auto rows = m_db->query("SELECT id FROM item ORDER BY id");
    m_db->begin();
    m_db->execute("INSERT INTO item (id) VALUES (3)");
    m_db->close();
    EXPECT_FALSE(m_db->opened());
    EXPECT_FALSE(m_db->isAlive());
    EXPECT_FALSE(m_db->inTransaction());
    EXPECT_THROW(rows->next(), DbException);
    EXPECT_THROW(rows->value(std::size_t{0}), DbException);
    EXPECT_THROW(m_db->execute("DELETE FROM item"), DbException);
    EXPECT_THROW(m_db->begin(), Zel::InvalidOperationException);
    m_db->close();
    rows.reset();

    m_db->open(m_database->connectionString());
    EXPECT_TRUE(m_db->isAlive());
    EXPECT_EQ(count(), 2);
}

INSTANTIATE_TEST_SUITE_P(Db, ConformanceTest,
                         ::testing::Values(Backend{"sqlite", &makeSqliteDatabase},
                                           Backend{"postgresql", &makePostgresDatabase},
                                           Backend{"firebird", &makeFirebirdDatabase}),
                         backendName);

TEST(OdbcConnectionTest, UnknownDriverReportsTheDriverManagersText) {
    try {
        Zel::Db::Connection::create("DRIVER=NoSuchDriver;Database=/nowhere");
        ADD_FAILURE() << "connected";
    } catch (const DbException& e) {
        EXPECT_EQ(e.driverMessage(),
                  "[unixODBC][Driver Manager]Can't open lib 'NoSuchDriver' : file not found");
        EXPECT_EQ(std::string(e.what()).rfind("Db: cannot connect | error=", 0), 0u) << e.what();
    }
}

} // namespace
} // namespace ZelTest
