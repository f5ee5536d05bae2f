#pragma once

#include <Zel/GenericException.h>
#include <cstdint>
#include <string>

namespace Zel::Db {

// A database operation failed: the driver or engine refused a statement, a connection could not be
// made or was lost, a value did not fit, or the pool had no connection to give.
//
// The message follows the house form, "Db: <what failed> | error=<driver text> | sqlState=... |
// nativeCode=... | sql=...", leaving out the pairs that are unknown. The parts stay readable on
// their own so that callers can branch on SQLSTATE or the engine's code without parsing text.
class ZEL_API DbException : public GenericException {
public:
    // `what` is the short sentence ("Db: statement failed"); the other parts may be empty / 0.
    DbException(const std::string& what, std::string driverMessage, std::string sqlState = {},
                std::int64_t nativeCode = 0, std::string sql = {});
    // A failure the library itself detects (no driver text, no SQLSTATE): `message` is already in
    // the house form.
    explicit DbException(std::string message);
    ~DbException() override;

    // The driver's or engine's own text, without the library's framing.
    const std::string& driverMessage() const noexcept { return m_driverMessage; }
    // The five-character SQLSTATE where the driver gives one ("42S02"), else empty.
    const std::string& sqlState() const noexcept { return m_sqlState; }
    // The engine's native error code (SQLite's result code, Firebird's ISC code), else 0.
    std::int64_t nativeCode() const noexcept { return m_nativeCode; }
    // The statement that failed, where there was one.
    const std::string& sql() const noexcept { return m_sql; }

private:
    std::string m_driverMessage;
    std::string m_sqlState;
    std::int64_t m_nativeCode = 0;
    std::string m_sql;
};

} // namespace Zel::Db
