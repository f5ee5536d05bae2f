#pragma once

#include <Zel/LongBinary.h>
#include <Zel/Variant.h>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <stdexcept>
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

// A parameter of the tests that run on several backends; gtest prints it, and names the test
// instances, by its name.
struct Backend {
    const char* name;
    std::unique_ptr<TestDatabase> (*make)();
};

inline void PrintTo(const Backend& backend, std::ostream* out) {
    *out << backend.name;
}

inline std::string backendName(const ::testing::TestParamInfo<Backend>& info) {
    return info.param.name;
}

// A fresh directory "<temp>/<prefix>XXXXXX"; whoever asks removes it.
inline std::string makeTempDirectory(const char* prefix) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / (std::string(prefix) + "XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed: " + pattern);
    return pattern;
}

// `size` bytes in which every byte value occurs and no short stretch repeats, so that a lost,
// doubled or reordered segment of a long binary shows.
inline Zel::LongBinary everyByte(std::size_t size) {
    Zel::LongBinary bytes;
    bytes.alloc(static_cast<std::int32_t>(size));
    for (std::size_t i = 0; i < size; ++i)
        bytes.data()[i] = static_cast<std::uint8_t>(i * 131 + i / 256);
    return bytes;
}

// Same type and value; with `anyNumber` a number may come back as another number type of the
// same value, to within `tolerance` of it (SQLite reads REAL columns as double, and the SQLite3
// driver passes floating point values through text of 15 digits).
inline ::testing::AssertionResult same(const Zel::Variant& actual, const Zel::Variant& expected,
                                       bool anyNumber = false, double tolerance = 0) {
    using Zel::Variant;
    auto numeric = [](const Variant& v) {
        return v.isInteger() || v.type() == Variant::Type::Float || v.type() == Variant::Type::Double;
    };
    if (anyNumber && numeric(actual) && numeric(expected)) {
        const double a = static_cast<double>(actual), b = static_cast<double>(expected);
        if (a == b || std::abs(a - b) <= tolerance * std::abs(b)) return ::testing::AssertionSuccess();
    } else if (actual.type() == expected.type()) {
        if (actual.type() == Variant::Type::Binary ? actual.binary() == expected.binary()
                                                   : actual == expected)
            return ::testing::AssertionSuccess();
    }
    auto show = [](const Variant& v) {
        std::string shown = Variant::typeToString(v.type());
        if (v.type() != Variant::Type::Binary && !v.isNull())
            shown += " " + static_cast<std::string>(v).substr(0, 40);
        if (v.type() == Variant::Type::Binary) shown += " of " + std::to_string(v.binary().size()) + " bytes";
        return shown;
    };
    return ::testing::AssertionFailure() << "read " << show(actual) << ", expected " << show(expected);
}

} // namespace ZelTest
