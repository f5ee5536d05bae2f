#include "../TestDatabase.h"

#include <Zel/Db/Connection.h>
#include <Zel/Db/DbException.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace Zel::Db {
namespace {

using ZelTest::everyByte;
using ZelTest::same;

// --- a second process holding the database -------------------------------------------------------
// The test binary runs itself again with ZEL_FIREBIRD_HOLD=<path>: before main, it opens the file,
// writes rows in a transaction it never ends, says "ready" on stdout and waits to be killed.
const bool childRan = [] {
    const char* path = std::getenv("ZEL_FIREBIRD_HOLD");
    if (path == nullptr) return false;
    auto connection = Connection::create(path);
    connection->begin();
    for (int i = 0; i < 100; ++i)
        connection->execute("INSERT INTO held (id) VALUES (?)", {i});
    if (::write(STDOUT_FILENO, "ready\n", 6) != 6) std::_Exit(2);
    char byte;
    while (::read(STDIN_FILENO, &byte, 1) != 0) {
    }
    std::_Exit(0);
}();

class HoldingChild {
public:
    explicit HoldingChild(const std::string& path) {
        int out[2], in[2];
        if (::pipe(out) != 0 || ::pipe(in) != 0) throw std::runtime_error("pipe failed");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        std::vector<std::string> variables = {"ZEL_FIREBIRD_HOLD=" + path};
        for (char** at = environ; *at != nullptr; ++at)
            variables.emplace_back(*at);
        std::vector<char*> envp;
        for (auto& variable : variables)
            envp.push_back(variable.data());
        envp.push_back(nullptr);
        char program[] = "/proc/self/exe";
        char* argv[] = {program, nullptr};
        const int failed = posix_spawn(&m_pid, program, &actions, nullptr, argv, envp.data());
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        ::close(in[0]);
        m_output = out[0];
        m_input = in[1];
        if (failed != 0) throw std::runtime_error("posix_spawn failed");
    }
    ~HoldingChild() {
        kill();
        ::close(m_output);
        ::close(m_input);
    }

    // The child's first line, waiting at most 60 s for it.
    std::string readLine() {
        std::string line;
        char byte;
        pollfd poll{m_output, POLLIN, 0};
        while (::poll(&poll, 1, 60'000) == 1 && ::read(m_output, &byte, 1) == 1 && byte != '\n')
            line.push_back(byte);
        return line;
    }
    // SIGKILL, and waits until it is gone.
    void kill() {
        if (m_pid <= 0) return;
        ::kill(m_pid, SIGKILL);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_pid = -1;
    }

private:
    pid_t m_pid = -1;
    int m_output = -1;
    int m_input = -1;
};

// --- fixture ---------------------------------------------------------------------------------------

class FirebirdConnectionTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_database = ZelTest::makeFirebirdDatabase();
        m_connection = Connection::create(m_database->connectionString());
    }

    Connection& db() { return *m_connection; }
    std::int64_t count(const std::string& table) {
        return static_cast<std::int64_t>(db().scalar("SELECT COUNT(*) FROM " + table));
    }
    template <class Call>
    DbException dbError(Call&& call) {
        try {
            call();
        } catch (const DbException& error) {
            return error;
        }
        ADD_FAILURE() << "no DbException";
        return DbException("none");
    }

    std::unique_ptr<ZelTest::TestDatabase> m_database;
    std::unique_ptr<Connection> m_connection;
};

// --- values ----------------------------------------------------------------------------------------

TEST_F(FirebirdConnectionTest, ValuesRoundTripByTheMappingRules) {
    struct Case {
        const char* sqlType;
        Variant bound;
        Variant expected;
        // What columns() reports, when not the expected value's type.
        Variant::Type columnType = Variant::Type::Null;
    };
    std::string longText;
    while (longText.size() < 100'000)
        longText += "grüße 😀 ";
    std::string umlauts;
    for (int i = 0; i < 100; ++i)
        umlauts += "ä";
    Variant map = Variant::makeMap();
    map.setAt("a", 1);
    const std::vector<Case> cases = {
        {"SMALLINT", short(-7), short(-7)},
        {"INTEGER", 123456, 123456},
        {"BIGINT", std::int64_t{9'000'000'000'000'000}, std::int64_t{9'000'000'000'000'000}},
        {"FLOAT", 1.5f, 1.5f},
        {"DOUBLE PRECISION", 0.1, 0.1},
        {"BOOLEAN", true, true},
        {"DATE", Date(2026, 11, 24), Date(2026, 11, 24)},
        {"TIME", Time(10, 30, 5), Time(10, 30, 5)},
        {"TIMESTAMP", DateTime(Date(2026, 11, 24), Time(23, 59, 59)),
         DateTime(Date(2026, 11, 24), Time(23, 59, 59))},
        {"TIMESTAMP", "2026-11-24 10:30:00.125", "2026-11-24 10:30:00.1250", Variant::Type::Timestamp},
        {"TIME", "10:30:00.5", "10:30:00.5000", Variant::Type::Time},
        {"VARCHAR(20)", "grüße 😀", "grüße 😀"},
        {"VARCHAR(100)", umlauts, umlauts},
        {"VARCHAR(40)", map, R"({"a":1})"},
        {"CHAR(5)", "ab", "ab   "},
        {"CHAR(3)", "äö", "äö "},
        {"NUMERIC(10,2)", "12.5", "12.50"},
        {"NUMERIC(10,2)", -0.05, "-0.05"},
        {"DECIMAL(18,4)", std::int64_t{-123456789}, "-123456789.0000"},
        {"NUMERIC(4,1)", short(3), "3.0"},
        {"NUMERIC(9,0)", 42, std::int64_t{42}},
        {"INTEGER", "42", 42},
        {"BLOB SUB_TYPE TEXT", longText, longText},
        {"BLOB SUB_TYPE TEXT", "short text", "short text"},
        {"BLOB", everyByte(1 << 20), everyByte(1 << 20)},
        {"BLOB", everyByte(300), everyByte(300)},
        {"CHAR(4) CHARACTER SET OCTETS", everyByte(4), everyByte(4)},
        {"VARCHAR(10)", Variant(), Variant()},
        {"BLOB", Variant(), Variant()},
    };
    std::string create = "CREATE TABLE typed (", insert = "INSERT INTO typed VALUES (";
    std::vector<Variant> params;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        create += (i ? ", c" : "c") + std::to_string(i) + " " + cases[i].sqlType;
        insert += i ? ", ?" : "?";
        params.push_back(cases[i].bound);
    }
    db().execute(create + ")");
    ASSERT_EQ(db().execute(insert + ")", params), 1);

    auto rows = db().query("SELECT * FROM typed");
    ASSERT_FALSE(rows->eof());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(std::to_string(i) + ": " + cases[i].sqlType);
        EXPECT_EQ(rows->columnName(i), "C" + std::to_string(i));
        const Variant::Type columnType =
            cases[i].columnType != Variant::Type::Null ? cases[i].columnType : cases[i].expected.type();
        if (columnType != Variant::Type::Null) EXPECT_EQ(rows->columnType(i), columnType);
        EXPECT_TRUE(same(rows->value(i), cases[i].expected));
    }
    EXPECT_FALSE(rows->next());
    EXPECT_TRUE(rows->eof());
}

TEST_F(FirebirdConnectionTest, ValuesTheEngineRefusesFailWithItsErrorAndWriteNothing) {
    db().execute("CREATE TABLE t (n INTEGER, s VARCHAR(5))");
    const struct {
        std::vector<Variant> params;
        const char* driverText;
    } cases[] = {
        {{1, "abcdef"}, "string right truncation"},
        {{"x42", "a"}, "conversion error from string \"x42\""},
        {{1, "äöüäöü"}, "string right truncation"},
        {{1, "abcdefghijklmnopqrstuvwxyz"}, "string right truncation"}, // longer than the 20 bytes declared
        {{std::int64_t{1} << 40, "a"}, "numeric value is out of range"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.driverText);
        const DbException error = dbError([&] { db().execute("INSERT INTO t VALUES (?, ?)", row.params); });
        EXPECT_NE(error.driverMessage().find(row.driverText), std::string::npos) << error.what();
        EXPECT_EQ(error.sql(), "INSERT INTO t VALUES (?, ?)");
        EXPECT_NE(error.nativeCode(), 0);
    }
    EXPECT_EQ(count("t"), 0);
}

// --- statements ------------------------------------------------------------------------------------

TEST_F(FirebirdConnectionTest, ReturningAndGeneratorsWorkThroughQueryAndExecute) {
    db().execute("CREATE TABLE tblOrmObjects (id BIGINT PRIMARY KEY, orm_class VARCHAR(40))");
    db().execute("CREATE GENERATOR genOrmObjectId");
    const std::string insert =
        "INSERT INTO tblOrmObjects (id, orm_class) VALUES (GEN_ID(genOrmObjectId,1), ?) RETURNING id";
    for (std::int64_t expected = 1; expected <= 3; ++expected) {
        auto rows = db().query(insert, {"Item"});
        ASSERT_FALSE(rows->eof());
        EXPECT_EQ(rows->columnName(0), "ID");
        EXPECT_EQ(static_cast<std::int64_t>(rows->value(0)), expected);
        EXPECT_FALSE(rows->next());
    }
    EXPECT_EQ(db().execute(insert, {"Other"}), 1);
    EXPECT_EQ(count("tblOrmObjects"), 4);

    auto updated =
        db().query("UPDATE tblOrmObjects SET orm_class=? WHERE id=? RETURNING orm_class", {"X", 2});
    ASSERT_FALSE(updated->eof());
    EXPECT_EQ(static_cast<std::string>(updated->value(0)), "X");
    EXPECT_TRUE(db().query("DELETE FROM tblOrmObjects WHERE id=99 RETURNING id")->eof());

    db().execute("CREATE PROCEDURE twice (a INTEGER) RETURNS (b INTEGER) AS BEGIN b = a * 2; END");
    EXPECT_EQ(static_cast<int>(db().scalar("EXECUTE PROCEDURE twice(?)", {21})), 42);
    EXPECT_NO_THROW(db().execute("EXECUTE PROCEDURE twice(?)", {1}));

    db().execute("SET GENERATOR genOrmObjectId TO 5");
    auto next = db().query("SELECT GEN_ID(genOrmObjectId,1) AS id FROM RDB$DATABASE");
    EXPECT_EQ(next->columnName(0), "ID");
    EXPECT_EQ(static_cast<std::int64_t>(next->value(0)), 6);
    next.reset();
    db().execute("UPDATE OR INSERT INTO tblOrmObjects (id) VALUES (5) MATCHING (id)");
    db().execute("UPDATE OR INSERT INTO tblOrmObjects (id) VALUES (5) MATCHING (id)");
    EXPECT_EQ(count("tblOrmObjects"), 5);

    // A generator step is not rolled back with its transaction.
    db().begin();
    db().scalar("SELECT GEN_ID(genOrmObjectId,1) FROM RDB$DATABASE");
    db().rollback();
    EXPECT_EQ(static_cast<std::int64_t>(db().scalar("SELECT GEN_ID(genOrmObjectId,0) FROM RDB$DATABASE")), 7);
}

TEST_F(FirebirdConnectionTest, ExecuteReportsTheRowsAffected) {
    db().execute("CREATE TABLE t (id INTEGER)");
    const struct {
        const char* sql;
        std::int64_t affected;
    } cases[] = {
        {"INSERT INTO t VALUES (1)", 1},
        {"/* one */ INSERT INTO \"T\" (id) VALUES (2)", 1},
        {"INSERT INTO t SELECT id + 10 FROM t", 2},
        {"INSERT INTO t (id) SELECT id FROM t WHERE id > 100", 0},
        {"UPDATE t SET id = id + 1 WHERE id > 5", 2},
        {"DELETE FROM t WHERE id = 99", 0},
        {"DELETE FROM t", 4},
        {"SELECT id FROM t", -1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.sql);
        EXPECT_EQ(db().execute(row.sql), row.affected);
    }
}

// Reuse and nested queries of one text are conformance cases; this one is Firebird's own.
TEST_F(FirebirdConnectionTest, CachedStatementsDoNotKeepATableInUseWhenDdlDropsIt) {
    db().execute("CREATE TABLE t (id INTEGER)");
    db().execute("INSERT INTO t VALUES (?)", {1});
    EXPECT_EQ(static_cast<int>(db().scalar("SELECT id FROM t WHERE id >= ?", {0})), 1);
    EXPECT_GT(db().cachedStatementCount(), 0u);
    db().execute("DROP TABLE t");
    EXPECT_THROW(db().query("SELECT id FROM t"), DbException);
}

TEST_F(FirebirdConnectionTest, ErrorsCarryTheEngineParts) {
    db().execute("CREATE TABLE t (id INTEGER)");
    DbException error = dbError([&] { db().execute("INSERT INTO t VALUES (?)", {1, 2}); });
    EXPECT_STREQ(error.what(),
                 "Db: wrong number of parameters | expected=1 | given=2 | sql=INSERT INTO t VALUES (?)");

    error = dbError([&] { db().execute("SELEC id FROM t"); });
    EXPECT_EQ(error.sqlState(), "42000");
    EXPECT_EQ(error.nativeCode(), 335544569); // isc_dsql_error
    EXPECT_EQ(error.sql(), "SELEC id FROM t");
    EXPECT_NE(error.driverMessage().find("Token unknown"), std::string::npos) << error.driverMessage();
    EXPECT_EQ(error.driverMessage().find('\n'), std::string::npos);
}

TEST_F(FirebirdConnectionTest, ConnectionStringsCreateWithOptionsOrFailNamingTheDatabase) {
    const std::string directory = m_database->connectionString() + ".dir";
    std::filesystem::create_directory(directory);
    auto created =
        Connection::create("Database=" + directory + "/new.fdb;Create=1;ForcedWrites=0;PageSize=16384");
    auto settings = created->query("SELECT MON$PAGE_SIZE, MON$FORCED_WRITES, RDB$CHARACTER_SET_NAME "
                                   "FROM MON$DATABASE CROSS JOIN RDB$DATABASE");
    EXPECT_EQ(static_cast<int>(settings->value(0)), 16384);
    EXPECT_EQ(static_cast<int>(settings->value(1)), 0);
    EXPECT_EQ(static_cast<std::string>(settings->value(2)).substr(0, 4), "UTF8");
    settings.reset();
    created.reset();
    // Create=1 on an existing file opens it.
    Connection::create("Database=" + directory + "/new.fdb;Create=1")->close();

    const struct {
        std::string connectionString;
        std::string inMessage;
    } failures[] = {
        {directory + "/missing.fdb", directory + "/missing.fdb"},
        {"Database=" + directory + "/missing.fdb;User=SYSDBA", directory + "/missing.fdb"},
        {"localhost/1:" + directory + "/remote.fdb", "localhost"}, // no server listens on port 1
        {"Database=" + directory + "/new.fdb;LockTimeout=soon", "LockTimeout"},
    };
    for (const auto& row : failures) {
        SCOPED_TRACE(row.connectionString);
        const DbException error = dbError([&] { Connection::create(row.connectionString); });
        EXPECT_NE(std::string(error.what()).find(row.inMessage), std::string::npos) << error.what();
    }
    std::filesystem::remove_all(directory);
}

// --- transactions ----------------------------------------------------------------------------------

TEST_F(FirebirdConnectionTest, ALockConflictFailsAfterTheLockTimeout) {
    db().execute("CREATE TABLE t (id INTEGER, n INTEGER)");
    db().execute("INSERT INTO t VALUES (1, 0)");
    auto other = Connection::create("Database=" + m_database->connectionString() + ";LockTimeout=1");
    db().begin();
    db().execute("UPDATE t SET n = 1 WHERE id = 1");
    other->begin();
    const DbException error = dbError([&] { other->execute("UPDATE t SET n = 2 WHERE id = 1"); });
    EXPECT_EQ(error.sqlState(), "40001");
    EXPECT_NE(error.driverMessage().find("update conflicts with concurrent update"), std::string::npos)
        << error.what();
    other->rollback();
    db().commit();
    EXPECT_EQ(static_cast<int>(other->scalar("SELECT n FROM t")), 1);
}

// --- connection life -------------------------------------------------------------------------------

// What close does to open recordsets is a conformance case; these are the ways Firebird ends a
// cursor without one.
TEST_F(FirebirdConnectionTest, RecordsetsThrowOnceTheirTransactionOrConnectionEnds) {
    EXPECT_EQ(db().backend(), "firebird");
    db().execute("CREATE TABLE t (id INTEGER)");
    db().execute("INSERT INTO t VALUES (1)");
    db().execute("INSERT INTO t VALUES (2)");
    // The engine closes a cursor with its transaction; a fetch afterwards would not fail but
    // deliver the last row again and again.
    for (bool commit : {true, false}) {
        db().begin();
        auto inTransaction = db().query("SELECT id FROM t");
        commit ? db().commit() : db().rollback();
        EXPECT_THROW(inTransaction->next(), DbException);
        EXPECT_THROW(inTransaction->value(0), DbException);
    }
    auto rows = db().query("SELECT id FROM t");
    m_connection.reset();
    EXPECT_THROW(rows->next(), DbException);
}

TEST_F(FirebirdConnectionTest, AFileHeldByAnotherProcessFailsAndItsWritesDieWithIt) {
    db().execute("CREATE TABLE held (id INTEGER)");
    db().close();
    HoldingChild child(m_database->connectionString());
    ASSERT_EQ(child.readLine(), "ready");
    const DbException error = dbError([&] { Connection::create(m_database->connectionString()); });
    EXPECT_NE(
        error.driverMessage().find("Database already opened with engine instance, incompatible with current"),
        std::string::npos)
        << error.what();
    child.kill();
    auto reopened = Connection::create(m_database->connectionString());
    EXPECT_EQ(static_cast<std::int64_t>(reopened->scalar("SELECT COUNT(*) FROM held")), 0);
}

} // namespace
} // namespace Zel::Db
