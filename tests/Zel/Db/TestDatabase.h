#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace ZelTest {

// A fresh, empty database on a real engine for one test, gone again when the object is destroyed
// (its file deleted, or its database dropped from the private server).
class TestDatabase {
public:
    virtual ~TestDatabase() = default;

    // "sqlite", "postgresql" or "firebird": names the backend in test names and traces.
    virtual std::string name() const = 0;
    // What Zel::Db::Connection::create takes to reach this database.
    virtual std::string connectionString() const = 0;
    // The engine's column type for a portable name, so one CREATE TABLE serves every engine.
    // Portable names: "TEXT" (text of any length), "BINARY" (bytes of any length), "BOOLEAN",
    // "DOUBLE"; anything else (INTEGER, VARCHAR(20), NUMERIC(10,2), TIMESTAMP ...) comes back as
    // it stands.
    virtual std::string type(std::string_view portableName) const = 0;
};

// SQLite through unixODBC's SQLite3 driver, a file in a fresh temporary directory.
std::unique_ptr<TestDatabase> makeSqliteDatabase();
// PostgreSQL through psqlODBC: a fresh database in a private cluster that the test process starts
// on first use (unix socket only, fsync off) and stops when it exits.
std::unique_ptr<TestDatabase> makePostgresDatabase();
// Firebird's embedded engine, a fresh file (UTF8, forced writes off) in a temporary directory.
std::unique_ptr<TestDatabase> makeFirebirdDatabase();

} // namespace ZelTest
