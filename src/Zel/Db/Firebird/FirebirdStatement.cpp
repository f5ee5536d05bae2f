#include <Zel/Db/Firebird/Detail/ParameterBinder.h>
#include <Zel/Db/Firebird/Detail/RowFormat.h>
#include <Zel/Db/Firebird/Detail/Session.h>
#include <Zel/Db/Firebird/FirebirdConnection.h>
#include <Zel/Db/Firebird/FirebirdRecordset.h>
#include <Zel/Db/Firebird/FirebirdStatement.h>
#include <Zel/InvalidOperationException.h>
#include <cctype>

namespace Zel::Db::Firebird {
namespace {

namespace Fb = ::Firebird;

// The first word of the text, upper-cased, past blanks and comments.
std::string firstWord(const std::string& sql) {
    std::size_t i = 0;
    while (i < sql.size()) {
        if (sql[i] == ' ' || sql[i] == '\t' || sql[i] == '\r' || sql[i] == '\n' || sql[i] == '(') {
            ++i;
        } else if (sql.compare(i, 2, "--") == 0) {
            i = sql.find('\n', i);
        } else if (sql.compare(i, 2, "/*") == 0) {
            i = sql.find("*/", i);
            if (i != std::string::npos) i += 2;
        } else {
            break;
        }
    }
    std::string word;
    for (; i < sql.size() && std::isalpha(static_cast<unsigned char>(sql[i])); ++i)
        word.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(sql[i]))));
    return word;
}

// Runs `work` in the connection's transaction, or in one of its own that is committed when work
// returns and rolled back when it throws.
template <class Work>
auto inTransaction(Detail::Session& session, const std::string& sql, Work&& work) {
    if (session.transaction != nullptr) return work(session.transaction);
    Fb::ITransaction* own = session.startTransaction(sql);
    try {
        auto result = work(own);
        session.commit(own, sql);
        return result;
    } catch (...) {
        session.rollbackQuietly(own);
        throw;
    }
}

} // namespace

FirebirdStatement::FirebirdStatement(std::shared_ptr<Detail::Session> shared, std::string sql)
    : m_session(std::move(shared)), m_sql(std::move(sql)) {
    Detail::Session& session = *m_session;
    session.requireOpen(m_sql);
    Fb::CheckStatusWrapper* status = session.status();
    // The engine prepares only inside a transaction.
    m_statement = inTransaction(session, m_sql, [&](Fb::ITransaction* transaction) {
        Fb::IStatement* prepared = session.attachment->prepare(
            status, transaction, 0, m_sql.c_str(), SQL_DIALECT_V6, Fb::IStatement::PREPARE_PREFETCH_METADATA);
        session.check("Db: cannot prepare the statement", m_sql);
        return prepared;
    });
    try {
        const unsigned type = m_statement->getType(status);
        const unsigned flags = m_statement->getFlags(status);
        Fb::IMessageMetadata* input = m_statement->getInputMetadata(status);
        session.check("Db: cannot describe the statement", m_sql);
        m_binder = std::make_unique<Detail::ParameterBinder>(session, input);
        input->release();
        m_outputMetadata = m_statement->getOutputMetadata(status);
        session.check("Db: cannot describe the statement", m_sql);
        m_row = std::make_unique<Detail::RowFormat>(session, m_outputMetadata, m_sql);
        m_output.resize((m_row->messageLength() + 7) / 8 + 1);
        m_hasCursor = (flags & Fb::IStatement::FLAG_HAS_CURSOR) != 0;
        m_isDdl = type == isc_info_sql_stmt_ddl;
        if (!m_hasCursor && m_row->size() > 0) {
            const std::string word = firstWord(m_sql);
            m_mayReturnNothing = word == "UPDATE" || word == "DELETE" || word == "MERGE";
        }
    } catch (...) {
        releaseHandles();
        throw;
    }
    session.attachStatement(this);
}

FirebirdStatement::~FirebirdStatement() {
    m_session->detachStatement(this);
    releaseHandles();
}

void FirebirdStatement::releaseHandles() noexcept {
    if (FirebirdRecordset* reader = m_reader) {
        reader->abandon();
        reader->m_closed = true;
    }
    m_binder.reset();
    if (m_outputMetadata != nullptr) {
        m_outputMetadata->release();
        m_outputMetadata = nullptr;
    }
    if (m_statement != nullptr) {
        m_statement->free(m_session->status());
        if (m_session->failed()) m_statement->release();
        m_session->status()->init();
        m_statement = nullptr;
    }
}

std::int64_t FirebirdStatement::run(const std::vector<Variant>& params, Fb::ITransaction* transaction) {
    Detail::Session& session = *m_session;
    Fb::CheckStatusWrapper* status = session.status();
    m_binder->bind(params, transaction, m_sql);
    // A statement prepared earlier would hold its tables in use and fail a DROP or ALTER at commit.
    if (m_isDdl && session.connection != nullptr) session.connection->releaseIdleStatements();
    const bool returns = m_row->size() > 0;
    m_statement->execute(status, transaction, m_binder->metadata(), m_binder->buffer(),
                         returns ? m_outputMetadata : nullptr, returns ? output() : nullptr);
    session.check("Db: statement failed", m_sql);
    const auto affected = static_cast<std::int64_t>(m_statement->getAffectedRecords(status));
    session.check("Db: statement failed", m_sql);
    return affected;
}

std::int64_t FirebirdStatement::execute(const std::vector<Variant>& params) {
    Detail::Session& session = *m_session;
    if (m_statement == nullptr) throw DbException("Db: connection is closed", {}, {}, 0, m_sql);
    m_binder->requireCount(params.size(), m_sql);
    return inTransaction(session, m_sql, [&](Fb::ITransaction* transaction) -> std::int64_t {
        if (!m_hasCursor) return run(params, transaction);
        m_binder->bind(params, transaction, m_sql);
        Fb::IResultSet* cursor = m_statement->openCursor(session.status(), transaction, m_binder->metadata(),
                                                         m_binder->buffer(), m_outputMetadata, 0);
        session.check("Db: statement failed", m_sql);
        cursor->close(session.status());
        if (session.failed()) {
            DbException error = session.error("Db: statement failed", m_sql);
            cursor->release();
            throw error;
        }
        return -1;
    });
}

std::unique_ptr<Recordset> FirebirdStatement::query(const std::vector<Variant>& params) {
    Detail::Session& session = *m_session;
    if (m_statement == nullptr) throw DbException("Db: connection is closed", {}, {}, 0, m_sql);
    if (m_reader != nullptr) ZEL_THROW_INVALID_OPERATION();
    m_binder->requireCount(params.size(), m_sql);
    auto self = std::static_pointer_cast<FirebirdStatement>(shared_from_this());

    if (!m_hasCursor) {
        std::vector<Variant> row = inTransaction(session, m_sql, [&](Fb::ITransaction* transaction) {
            const std::int64_t affected = run(params, transaction);
            std::vector<Variant> values;
            if (m_row->size() == 0 || (m_mayReturnNothing && affected == 0)) return values;
            // Read now, blobs included: an own transaction ends before this returns.
            values.reserve(m_row->size());
            for (std::size_t i = 0; i < m_row->size(); ++i)
                values.push_back(m_row->read(session, output(), i, transaction, m_sql));
            return values;
        });
        return std::make_unique<FirebirdRecordset>(std::move(self), std::move(row));
    }

    Fb::ITransaction* own = session.transaction == nullptr ? session.startTransaction(m_sql) : nullptr;
    Fb::ITransaction* transaction = own != nullptr ? own : session.transaction;
    Fb::IResultSet* cursor = nullptr;
    try {
        m_binder->bind(params, transaction, m_sql);
        cursor = m_statement->openCursor(session.status(), transaction, m_binder->metadata(),
                                         m_binder->buffer(), m_outputMetadata, 0);
        session.check("Db: query failed", m_sql);
    } catch (...) {
        session.rollbackQuietly(own);
        throw;
    }
    return std::make_unique<FirebirdRecordset>(std::move(self), cursor, own);
}

} // namespace Zel::Db::Firebird
