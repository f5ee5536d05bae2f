#include <Zel/Db/DbException.h>
#include <Zel/Db/Detail/ConnectionString.h>
#include <Zel/Db/Firebird/Detail/Session.h>
#include <Zel/Db/Firebird/FirebirdConnection.h>
#include <Zel/Db/Firebird/FirebirdStatement.h>
#include <Zel/InvalidOperationException.h>

namespace Zel::Db::Firebird {
namespace {

namespace Fb = ::Firebird;

struct Options {
    std::string database;
    std::string user;
    std::string password;
    std::string role;
    bool create = false;
    int forcedWrites = -1; // as the database has it
    int pageSize = 8192;
    int lockTimeout = 5;
};

int number(const Db::Detail::ConnectionString& parsed, const char* key, int fallback) {
    const auto text = parsed.find(key);
    if (!text || text->empty()) return fallback;
    try {
        std::size_t used = 0;
        const int value = std::stoi(*text, &used);
        if (used == text->size()) return value;
    } catch (const std::exception&) {
    }
    throw DbException(std::string("Db: malformed connection string | key=") + key);
}

Options parse(const std::string& text) {
    Options options;
    if (text.find('=') == std::string::npos) {
        options.database = text;
        return options;
    }
    const Db::Detail::ConnectionString parsed(text);
    options.database = parsed.get("Database");
    options.user = parsed.get("User");
    options.password = parsed.get("Password");
    options.role = parsed.get("Role");
    options.create = number(parsed, "Create", 0) != 0;
    options.forcedWrites = number(parsed, "ForcedWrites", -1);
    options.pageSize = number(parsed, "PageSize", 8192);
    options.lockTimeout = number(parsed, "LockTimeout", 5);
    if (options.database.empty()) throw DbException("Db: connection string names no database");
    return options;
}

// "host:/path" and "host/port:/path" name a server; a path, even one holding ':' further on, and a
// drive letter ("C:/...") name a local file.
bool isRemote(const std::string& database) {
    const std::size_t colon = database.find(':');
    if (colon == std::string::npos || colon < 2) return false;
    const std::string_view prefix(database.data(), colon);
    return prefix.front() != '/' && prefix.find('/') == prefix.rfind('/');
}

// Owns an IXpbBuilder.
class ParameterBlock {
public:
    ParameterBlock(Detail::Session& session, const Options& options, bool creating) : m_session(session) {
        Fb::CheckStatusWrapper* status = session.status();
        m_builder = session.util()->getXpbBuilder(status, Fb::IXpbBuilder::DPB, nullptr, 0);
        session.check("Db: cannot build the connection parameters");
        // The server's configuration decides for "host:path"; a plain path must not fall back to a
        // server, and must not need one.
        if (!isRemote(options.database))
            m_builder->insertString(status, isc_dpb_config, "Providers=Engine12");
        else
            m_builder->insertString(status, isc_dpb_config, "Providers=Remote");
        m_builder->insertString(status, isc_dpb_lc_ctype, "UTF8");
        if (!options.user.empty()) m_builder->insertString(status, isc_dpb_user_name, options.user.c_str());
        if (!options.password.empty())
            m_builder->insertString(status, isc_dpb_password, options.password.c_str());
        if (!options.role.empty())
            m_builder->insertString(status, isc_dpb_sql_role_name, options.role.c_str());
        if (options.forcedWrites >= 0)
            m_builder->insertInt(status, isc_dpb_force_write, options.forcedWrites);
        if (creating) {
            m_builder->insertString(status, isc_dpb_set_db_charset, "UTF8");
            m_builder->insertInt(status, isc_dpb_page_size, options.pageSize);
            m_builder->insertInt(status, isc_dpb_sql_dialect, 3);
        }
        check();
    }
    ~ParameterBlock() { m_builder->dispose(); }

    unsigned length() {
        const unsigned length = m_builder->getBufferLength(m_session.status());
        check();
        return length;
    }
    const unsigned char* data() {
        const unsigned char* data = m_builder->getBuffer(m_session.status());
        check();
        return data;
    }

    ParameterBlock(const ParameterBlock&) = delete;
    ParameterBlock& operator=(const ParameterBlock&) = delete;

private:
    void check() {
        if (m_session.failed()) {
            DbException error = m_session.error("Db: cannot build the connection parameters", {});
            m_builder->dispose();
            m_builder = nullptr;
            throw error;
        }
    }

    Detail::Session& m_session;
    Fb::IXpbBuilder* m_builder = nullptr;
};

} // namespace

FirebirdConnection::FirebirdConnection() = default;

FirebirdConnection::~FirebirdConnection() {
    close();
}

void FirebirdConnection::open(const std::string& connectionString) {
    if (opened()) ZEL_THROW_INVALID_OPERATION();
    const Options options = parse(connectionString);
    auto session = std::make_shared<Detail::Session>();
    session->setLockTimeout(options.lockTimeout);
    Fb::CheckStatusWrapper* status = session->status();
    Fb::IProvider* provider = session->master()->getDispatcher();
    {
        ParameterBlock block(*session, options, false);
        session->attachment =
            provider->attachDatabase(status, options.database.c_str(), block.length(), block.data());
    }
    if (session->failed() && options.create) {
        // Only a file that is not there is created; any other failure is reported as it is.
        const ISC_STATUS* vector = status->getErrors();
        if (vector[0] == isc_arg_gds && vector[1] == isc_io_error) {
            ParameterBlock block(*session, options, true);
            session->attachment =
                provider->createDatabase(status, options.database.c_str(), block.length(), block.data());
        }
    }
    if (session->failed()) {
        DbException error =
            session->error(("Db: cannot open the database | database=" + options.database).c_str(), {});
        provider->release();
        throw error;
    }
    provider->release();
    session->connection = this;
    m_session = std::move(session);
}

void FirebirdConnection::close() noexcept {
    if (!m_session) return;
    clearStatementCache();
    m_session->connection = nullptr;
    m_session->shutdown();
    m_session.reset();
}

bool FirebirdConnection::opened() const noexcept {
    return m_session != nullptr;
}

bool FirebirdConnection::isAlive() noexcept {
    if (!m_session || m_session->attachment == nullptr) return false;
    m_session->attachment->ping(m_session->status());
    const bool alive = !m_session->failed();
    m_session->status()->init();
    return alive;
}

void FirebirdConnection::begin() {
    if (!m_session || m_session->transaction != nullptr) ZEL_THROW_INVALID_OPERATION();
    m_session->transaction = m_session->startTransaction({});
}

void FirebirdConnection::commit() {
    if (!m_session || m_session->transaction == nullptr) ZEL_THROW_INVALID_OPERATION();
    try {
        m_session->commit(m_session->transaction, {});
    } catch (...) {
        // A commit that failed leaves nothing to commit later: the changes are rolled back.
        m_session->rollbackQuietly(m_session->transaction);
        throw;
    }
}

void FirebirdConnection::rollback() {
    if (!m_session || m_session->transaction == nullptr) ZEL_THROW_INVALID_OPERATION();
    try {
        m_session->rollback(m_session->transaction, {});
    } catch (...) {
        m_session->rollbackQuietly(m_session->transaction);
        throw;
    }
}

bool FirebirdConnection::inTransaction() const noexcept {
    return m_session && m_session->transaction != nullptr;
}

std::shared_ptr<Statement> FirebirdConnection::prepare(const std::string& sql) {
    if (!m_session) throw DbException("Db: connection is not open", {}, {}, 0, sql);
    return std::make_shared<FirebirdStatement>(m_session, sql);
}

} // namespace Zel::Db::Firebird
