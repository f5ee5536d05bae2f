#include <Zel/Db/DbException.h>

namespace Zel::Db {
namespace {

std::string formatMessage(const std::string& what, const std::string& driverMessage,
                          const std::string& sqlState, std::int64_t nativeCode, const std::string& sql) {
    std::string message = what;
    if (!driverMessage.empty()) message.append(" | error=").append(driverMessage);
    if (!sqlState.empty()) message.append(" | sqlState=").append(sqlState);
    if (nativeCode != 0) message.append(" | nativeCode=").append(std::to_string(nativeCode));
    if (!sql.empty()) message.append(" | sql=").append(sql);
    return message;
}

} // namespace

DbException::DbException(const std::string& what, std::string driverMessage, std::string sqlState,
                         std::int64_t nativeCode, std::string sql)
    : GenericException(formatMessage(what, driverMessage, sqlState, nativeCode, sql)),
      m_driverMessage(std::move(driverMessage)), m_sqlState(std::move(sqlState)), m_nativeCode(nativeCode),
      m_sql(std::move(sql)) {}

DbException::DbException(std::string message) : GenericException(std::move(message)) {}

DbException::~DbException() = default;

} // namespace Zel::Db
