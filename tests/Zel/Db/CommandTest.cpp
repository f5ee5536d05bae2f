#include <Zel/ArgumentException.h>
#include <Zel/Db/Command.h>
#include <Zel/Db/DbException.h>
#include <Zel/Db/Detail/ConnectionString.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace Zel::Db {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

TEST(ConnectionStringTest, ParsesPairsBracesAndEscapes) {
    const std::vector<std::pair<std::string, Pairs>> cases = {
        {"DRIVER=SQLite3;Database=/tmp/a.db", {{"DRIVER", "SQLite3"}, {"Database", "/tmp/a.db"}}},
        {" Driver = {PostgreSQL Unicode} ; PWD={a;b=c}}d};",
         {{"Driver", "PostgreSQL Unicode"}, {"PWD", "a;b=c}d"}}},
        {"A=;;B= x y ", {{"A", ""}, {"B", "x y"}}},
        {"", {}},
    };
    for (const auto& [text, pairs] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Detail::ConnectionString(text).pairs(), pairs);
    }
    const Detail::ConnectionString parsed("uid=app;DSN=orders");
    EXPECT_EQ(parsed.get("UID"), "app");
    EXPECT_EQ(parsed.get("dsn"), "orders");
    EXPECT_EQ(parsed.get("PWD", "none"), "none");
}

TEST(ConnectionStringTest, RefusesMalformedTextWithoutQuotingIt) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"DRIVER=SQLite3;secret", "Db: malformed connection string | at=15"},
        {"PWD={never closed", "Db: malformed connection string | at=4"},
        {"=value", "Db: malformed connection string | at=0"},
    };
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(text);
        try {
            Detail::ConnectionString parsed(text);
            ADD_FAILURE() << "parsed";
        } catch (const DbException& e) {
            EXPECT_EQ(std::string(e.what()), message);
        }
    }
}

TEST(ConnectionStringTest, TellsOdbcStringsFromFirebirdPaths) {
    const std::vector<std::pair<std::string, bool>> cases = {
        {"DRIVER=SQLite3;Database=a.db", true},
        {"dsn=orders", true},
        {"FileDSN=/etc/x.dsn", true},
        {"/var/lib/app/app.fdb", false},
        {"dbhost:/srv/a.fdb", false},
        {"Database=/a.fdb;User=SYSDBA", false},
        {"DRIVER={unclosed", false},
    };
    for (const auto& [text, odbc] : cases)
        EXPECT_EQ(Detail::ConnectionString::isOdbc(text), odbc) << text;
}

TEST(CommandTest, BuildsInsertAndUpdateTexts) {
    Command insert;
    insert.addColumnExpression("id", "GEN_ID(genItem,1)").addColumn("name", "tea").addColumn("qty", 3);
    insert.buildInsert("item", "id");
    EXPECT_EQ(insert.sql(), "INSERT INTO item (id, name, qty) VALUES (GEN_ID(genItem,1), ?, ?) RETURNING id");
    ASSERT_EQ(insert.params().size(), 2u);
    EXPECT_EQ(static_cast<std::string>(insert.params()[0]), "tea");
    EXPECT_FALSE(insert.hasColumns());

    Command update;
    update.addColumn("name", "rice").addColumnExpression("qty", "qty+1").buildUpdate("item", "id", 7);
    EXPECT_EQ(update.sql(), "UPDATE item SET name=?, qty=qty+1 WHERE id=?");
    ASSERT_EQ(update.params().size(), 2u);
    EXPECT_EQ(static_cast<int>(update.params()[1]), 7);

    Command empty;
    EXPECT_THROW(empty.buildInsert("item"), ArgumentException);
    EXPECT_THROW(empty.buildUpdate("item", "id", 1), ArgumentException);
}

} // namespace
} // namespace Zel::Db
