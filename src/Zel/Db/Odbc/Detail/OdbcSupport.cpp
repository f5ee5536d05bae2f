#include <Zel/Db/DbException.h>
#include <Zel/Db/Odbc/Detail/OdbcSupport.h>
#include <vector>

namespace Zel::Db::Odbc::Detail {

std::shared_ptr<const EnvironmentHandle> environment() {
    static const std::shared_ptr<const EnvironmentHandle> shared = [] {
        SQLHENV handle = SQL_NULL_HENV;
        if (!succeeded(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &handle)))
            throw DbException("Db: cannot allocate the ODBC environment");
        auto owned = std::make_shared<EnvironmentHandle>(handle);
        if (!succeeded(
                SQLSetEnvAttr(handle, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0)))
            throwDiagnostics(SQL_HANDLE_ENV, handle, "Db: cannot select ODBC 3");
        return std::shared_ptr<const EnvironmentHandle>(std::move(owned));
    }();
    return shared;
}

Session::Session() : environment(Detail::environment()) {}

Session::~Session() {
    ping.reset();
    if (connected) SQLDisconnect(connection.get());
}

void throwDiagnostics(SQLSMALLINT kind, SQLHANDLE handle, const std::string& what, const std::string& sql) {
    std::string text;
    std::string firstState;
    SQLINTEGER firstNative = 0;
    std::vector<SQLCHAR> message(1024);
    for (SQLSMALLINT record = 1;; ++record) {
        SQLCHAR state[SQL_SQLSTATE_SIZE + 1] = {};
        SQLINTEGER native = 0;
        SQLSMALLINT length = 0;
        SQLRETURN result = SQLGetDiagRec(kind, handle, record, state, &native, message.data(),
                                         static_cast<SQLSMALLINT>(message.size()), &length);
        if (result == SQL_SUCCESS_WITH_INFO && static_cast<std::size_t>(length) >= message.size()) {
            message.resize(static_cast<std::size_t>(length) + 1);
            result = SQLGetDiagRec(kind, handle, record, state, &native, message.data(),
                                   static_cast<SQLSMALLINT>(message.size()), &length);
        }
        if (!succeeded(result)) break;
        if (record == 1) {
            firstState = reinterpret_cast<const char*>(state);
            firstNative = native;
        } else {
            text.append("; ");
        }
        const std::size_t size = std::min(static_cast<std::size_t>(length), message.size() - 1);
        text.append(reinterpret_cast<const char*>(message.data()), size);
    }
    throw DbException(what, std::move(text), std::move(firstState), firstNative, sql);
}

} // namespace Zel::Db::Odbc::Detail
