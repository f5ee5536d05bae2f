// Zel::Db over the SQLite3 ODBC driver against the same work written by hand on the ODBC API, and
// the native sqlite3 API for context. Each iteration inserts 10,000 rows of
// item(id, name, qty, price, created) in one transaction into an emptied table:
//   - Insert/Zel: a Command bound and executed per row (prepared once, from the statement cache);
//     Insert/Odbc: SQLPrepare once, SQLBindParameter once, SQLExecute per row.
//   - Batch/Zel: Command::executeBatch over the rows; Batch/Odbc: one parameter-array execution.
//   - Insert/Sqlite3: sqlite3_prepare once, bind, step and reset per row.
//   - Select/Zel and Select/Odbc read the 10,000 rows back, every column of every row.

#include "DbBench.h"

#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>
#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sql.h>
#include <sqlext.h>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zel::Bench::Db {
namespace {

constexpr int rowCount = 10'000;
constexpr const char* insertSql = "INSERT INTO item (id, name, qty, price, created) VALUES (?, ?, ?, ?, ?)";
constexpr const char* selectSql = "SELECT id, name, qty, price, created FROM item";

const std::string& databasePath() {
    static const std::string path = scratchDirectory() + "/odbc-bench.db";
    return path;
}

std::string connectionString() {
    return "DRIVER=SQLite3;Database=" + databasePath();
}

// The same row values on every path: "item <n>" as the name.
std::size_t writeName(char* target, int row) {
    std::memcpy(target, "item ", 5);
    return 5 + static_cast<std::size_t>(std::to_chars(target + 5, target + 32, row).ptr - (target + 5));
}
int quantity(int row) {
    return row % 100;
}
double price(int row) {
    return row * 0.25;
}
SQL_TIMESTAMP_STRUCT created(int row) {
    return {2026,
            11,
            24,
            static_cast<SQLUSMALLINT>(row / 3600 % 24),
            static_cast<SQLUSMALLINT>(row / 60 % 60),
            static_cast<SQLUSMALLINT>(row % 60),
            0};
}

Zel::Db::Connection& zelConnection() {
    static const std::unique_ptr<Zel::Db::Connection> connection = [] {
        auto made = Zel::Db::Connection::create(connectionString());
        made->execute(
            "CREATE TABLE IF NOT EXISTS item (id BIGINT PRIMARY KEY, name VARCHAR(64), qty INTEGER, "
            "price DOUBLE PRECISION, created TIMESTAMP)");
        return made;
    }();
    return *connection;
}

void emptyTable(benchmark::State& state) {
    state.PauseTiming();
    zelConnection().execute("DELETE FROM item");
    state.ResumeTiming();
}

void check(SQLRETURN result, SQLSMALLINT kind, SQLHANDLE handle, const char* what) {
    if (result == SQL_SUCCESS || result == SQL_SUCCESS_WITH_INFO || result == SQL_NO_DATA) return;
    SQLCHAR state[6] = {}, message[512] = {};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    SQLGetDiagRec(kind, handle, 1, state, &native, message, sizeof message, &length);
    throw std::runtime_error(std::string(what) + ": " + reinterpret_cast<const char*>(message));
}

// A plain ODBC connection, as a program without Zel would hold it.
struct RawOdbc {
    SQLHENV environment = SQL_NULL_HENV;
    SQLHDBC connection = SQL_NULL_HDBC;

    RawOdbc() {
        SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment);
        SQLSetEnvAttr(environment, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
        SQLAllocHandle(SQL_HANDLE_DBC, environment, &connection);
        std::string text = connectionString();
        check(SQLDriverConnect(connection, nullptr, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS, nullptr,
                               0, nullptr, SQL_DRIVER_NOPROMPT),
              SQL_HANDLE_DBC, connection, "connect");
    }
    ~RawOdbc() {
        SQLDisconnect(connection);
        SQLFreeHandle(SQL_HANDLE_DBC, connection);
        SQLFreeHandle(SQL_HANDLE_ENV, environment);
    }
    SQLHSTMT statement(const char* sql) {
        SQLHSTMT handle = SQL_NULL_HSTMT;
        SQLAllocHandle(SQL_HANDLE_STMT, connection, &handle);
        check(SQLPrepare(handle, reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql)), SQL_NTS),
              SQL_HANDLE_STMT, handle, "prepare");
        return handle;
    }
    void begin() {
        SQLSetConnectAttr(connection, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF),
                          0);
    }
    void commit() {
        check(SQLEndTran(SQL_HANDLE_DBC, connection, SQL_COMMIT), SQL_HANDLE_DBC, connection, "commit");
        SQLSetConnectAttr(connection, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON),
                          0);
    }
};

void zelInsert(benchmark::State& state) {
    auto& db = zelConnection();
    Zel::Db::Command insert(insertSql);
    char name[32];
    for (auto _ : state) {
        emptyTable(state);
        db.begin();
        for (int row = 0; row < rowCount; ++row) {
            const SQL_TIMESTAMP_STRUCT stamp = created(row);
            insert.clearParams()
                .bind(std::int64_t{row})
                .bind(std::string_view(name, writeName(name, row)))
                .bind(quantity(row))
                .bind(price(row))
                .bind(DateTime(Date(stamp.year, stamp.month, stamp.day),
                               Time(stamp.hour, stamp.minute, stamp.second)));
            insert.execute(db);
        }
        db.commit();
    }
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void odbcInsert(benchmark::State& state) {
    RawOdbc odbc;
    SQLHSTMT insert = odbc.statement(insertSql);
    SQLBIGINT id = 0;
    char name[65] = {};
    SQLINTEGER qty = 0;
    double cost = 0;
    SQL_TIMESTAMP_STRUCT stamp{};
    SQLLEN idLength = 0, nameLength = 0, qtyLength = 0, priceLength = 0, stampLength = 0;
    SQLBindParameter(insert, 1, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 19, 0, &id, 0, &idLength);
    SQLBindParameter(insert, 2, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 64, 0, name, sizeof name,
                     &nameLength);
    SQLBindParameter(insert, 3, SQL_PARAM_INPUT, SQL_C_SLONG, SQL_INTEGER, 10, 0, &qty, 0, &qtyLength);
    SQLBindParameter(insert, 4, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 15, 0, &cost, 0, &priceLength);
    SQLBindParameter(insert, 5, SQL_PARAM_INPUT, SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP, 19, 0, &stamp, 0,
                     &stampLength);
    for (auto _ : state) {
        emptyTable(state);
        odbc.begin();
        for (int row = 0; row < rowCount; ++row) {
            id = row;
            nameLength = static_cast<SQLLEN>(writeName(name, row));
            qty = quantity(row);
            cost = price(row);
            stamp = created(row);
            check(SQLExecute(insert), SQL_HANDLE_STMT, insert, "insert");
        }
        odbc.commit();
    }
    SQLFreeHandle(SQL_HANDLE_STMT, insert);
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void zelBatch(benchmark::State& state) {
    auto& db = zelConnection();
    const Zel::Db::Command insert(insertSql);
    std::vector<std::vector<Variant>> rows(rowCount);
    char name[32];
    for (auto _ : state) {
        emptyTable(state);
        for (int row = 0; row < rowCount; ++row) {
            const SQL_TIMESTAMP_STRUCT stamp = created(row);
            auto& values = rows[static_cast<std::size_t>(row)];
            values.clear();
            values.emplace_back(std::int64_t{row});
            values.emplace_back(std::string_view(name, writeName(name, row)));
            values.emplace_back(quantity(row));
            values.emplace_back(price(row));
            values.emplace_back(DateTime(Date(stamp.year, stamp.month, stamp.day),
                                         Time(stamp.hour, stamp.minute, stamp.second)));
        }
        db.begin();
        insert.executeBatch(db, rows);
        db.commit();
    }
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void odbcBatch(benchmark::State& state) {
    RawOdbc odbc;
    SQLHSTMT insert = odbc.statement(insertSql);
    constexpr std::size_t nameWidth = 65;
    std::vector<SQLBIGINT> ids(rowCount);
    std::vector<char> names(rowCount * nameWidth);
    std::vector<SQLINTEGER> quantities(rowCount);
    std::vector<double> prices(rowCount);
    std::vector<SQL_TIMESTAMP_STRUCT> stamps(rowCount);
    std::vector<SQLLEN> fixed(rowCount, 0), nameLengths(rowCount);
    SQLSetStmtAttr(insert, SQL_ATTR_PARAM_BIND_TYPE, reinterpret_cast<SQLPOINTER>(SQL_PARAM_BIND_BY_COLUMN),
                   0);
    SQLSetStmtAttr(insert, SQL_ATTR_PARAMSET_SIZE,
                   reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(rowCount)), 0);
    SQLBindParameter(insert, 1, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 19, 0, ids.data(), 0,
                     fixed.data());
    SQLBindParameter(insert, 2, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 64, 0, names.data(), nameWidth,
                     nameLengths.data());
    SQLBindParameter(insert, 3, SQL_PARAM_INPUT, SQL_C_SLONG, SQL_INTEGER, 10, 0, quantities.data(), 0,
                     fixed.data());
    SQLBindParameter(insert, 4, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 15, 0, prices.data(), 0,
                     fixed.data());
    SQLBindParameter(insert, 5, SQL_PARAM_INPUT, SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP, 19, 0,
                     stamps.data(), 0, fixed.data());
    for (auto _ : state) {
        emptyTable(state);
        for (int row = 0; row < rowCount; ++row) {
            const auto r = static_cast<std::size_t>(row);
            ids[r] = row;
            nameLengths[r] = static_cast<SQLLEN>(writeName(&names[r * nameWidth], row));
            quantities[r] = quantity(row);
            prices[r] = price(row);
            stamps[r] = created(row);
        }
        odbc.begin();
        check(SQLExecute(insert), SQL_HANDLE_STMT, insert, "insert");
        SQLFreeStmt(insert, SQL_CLOSE);
        odbc.commit();
    }
    SQLFreeHandle(SQL_HANDLE_STMT, insert);
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void sqliteInsert(benchmark::State& state) {
    sqlite3* db = nullptr;
    if (sqlite3_open(databasePath().c_str(), &db) != SQLITE_OK) throw std::runtime_error("sqlite3_open");
    // The ODBC driver's default, so that the commits cost the same.
    sqlite3_exec(db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, insertSql, -1, &insert, nullptr);
    char name[32], stamp[32];
    for (auto _ : state) {
        emptyTable(state);
        sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
        for (int row = 0; row < rowCount; ++row) {
            const SQL_TIMESTAMP_STRUCT at = created(row);
            const int stampLength = std::snprintf(stamp, sizeof stamp, "%04d-%02u-%02u %02u:%02u:%02u",
                                                  at.year, at.month, at.day, at.hour, at.minute, at.second);
            sqlite3_bind_int64(insert, 1, row);
            sqlite3_bind_text(insert, 2, name, static_cast<int>(writeName(name, row)), SQLITE_STATIC);
            sqlite3_bind_int(insert, 3, quantity(row));
            sqlite3_bind_double(insert, 4, price(row));
            sqlite3_bind_text(insert, 5, stamp, stampLength, SQLITE_STATIC);
            if (sqlite3_step(insert) != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db));
            sqlite3_reset(insert);
        }
        sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    }
    sqlite3_finalize(insert);
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void fillForSelect() {
    static const bool filled = [] {
        auto& db = zelConnection();
        db.execute("DELETE FROM item");
        db.begin();
        const Zel::Db::Command insert(insertSql);
        std::vector<std::vector<Variant>> rows;
        for (int row = 0; row < rowCount; ++row)
            rows.push_back({std::int64_t{row}, "item " + std::to_string(row), quantity(row), price(row),
                            DateTime(Date(2026, 11, 24), Time(row / 3600 % 24, row / 60 % 60, row % 60))});
        insert.executeBatch(db, rows);
        db.commit();
        return true;
    }();
    (void)filled;
}

void zelSelect(benchmark::State& state) {
    fillForSelect();
    auto& db = zelConnection();
    for (auto _ : state) {
        std::int64_t sum = 0;
        for (auto rows = db.query(selectSql); !rows->eof(); rows->next()) {
            sum += static_cast<std::int64_t>(rows->value(std::size_t{0}));
            benchmark::DoNotOptimize(rows->value(1));
            sum += static_cast<int>(rows->value(2));
            benchmark::DoNotOptimize(static_cast<double>(rows->value(3)));
            benchmark::DoNotOptimize(rows->value(4));
        }
        if (sum == 0) throw std::runtime_error("no rows");
    }
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void odbcSelect(benchmark::State& state) {
    fillForSelect();
    RawOdbc odbc;
    SQLHSTMT select = odbc.statement(selectSql);
    for (auto _ : state) {
        std::int64_t sum = 0;
        check(SQLExecute(select), SQL_HANDLE_STMT, select, "select");
        while (SQLFetch(select) == SQL_SUCCESS) {
            SQLBIGINT id = 0;
            char name[65];
            SQLINTEGER qty = 0;
            double cost = 0;
            SQL_TIMESTAMP_STRUCT stamp{};
            SQLLEN length = 0;
            SQLGetData(select, 1, SQL_C_SBIGINT, &id, 0, &length);
            SQLGetData(select, 2, SQL_C_CHAR, name, sizeof name, &length);
            SQLGetData(select, 3, SQL_C_SLONG, &qty, 0, &length);
            SQLGetData(select, 4, SQL_C_DOUBLE, &cost, 0, &length);
            SQLGetData(select, 5, SQL_C_TYPE_TIMESTAMP, &stamp, 0, &length);
            sum += id + qty;
            benchmark::DoNotOptimize(name);
            benchmark::DoNotOptimize(cost);
            benchmark::DoNotOptimize(stamp);
        }
        SQLFreeStmt(select, SQL_CLOSE);
        if (sum == 0) throw std::runtime_error("no rows");
    }
    SQLFreeHandle(SQL_HANDLE_STMT, select);
    state.SetItemsProcessed(state.iterations() * rowCount);
}

void registerBenchmarks() {
    zelConnection();
    for (auto [name, function] : {std::pair{"Insert/Zel", &zelInsert},
                                  {"Insert/Odbc", &odbcInsert},
                                  {"Insert/Sqlite3", &sqliteInsert},
                                  {"Batch/Zel", &zelBatch},
                                  {"Batch/Odbc", &odbcBatch},
                                  {"Select/Zel", &zelSelect},
                                  {"Select/Odbc", &odbcSelect}})
        benchmark::RegisterBenchmark(name, function)->Unit(benchmark::kMillisecond);
}

void printRatios(const CapturingReporter& reporter) {
    auto rate = [&](const char* name) { return reporter.counter(name, "items_per_second"); };
    std::printf("  prepared loop:   Zel %.0fk rows/s, hand-written ODBC %.0fk rows/s; Zel/ODBC %s; "
                "native sqlite3 %.0fk rows/s\n",
                rate("Insert/Zel") / 1e3, rate("Insert/Odbc") / 1e3,
                formatRatio(rate("Insert/Zel"), rate("Insert/Odbc")).c_str(), rate("Insert/Sqlite3") / 1e3);
    std::printf("  parameter array: Zel %.0fk rows/s, hand-written ODBC %.0fk rows/s; Zel/ODBC %s\n",
                rate("Batch/Zel") / 1e3, rate("Batch/Odbc") / 1e3,
                formatRatio(rate("Batch/Zel"), rate("Batch/Odbc")).c_str());
    std::printf("  select:          Zel %.0fk rows/s, hand-written ODBC %.0fk rows/s; Zel/ODBC %s\n",
                rate("Select/Zel") / 1e3, rate("Select/Odbc") / 1e3,
                formatRatio(rate("Select/Zel"), rate("Select/Odbc")).c_str());
}

const bool registered =
    addGroup({"Zel::Db over the SQLite3 ODBC driver (same run)", registerBenchmarks, printRatios});

} // namespace
} // namespace Zel::Bench::Db
