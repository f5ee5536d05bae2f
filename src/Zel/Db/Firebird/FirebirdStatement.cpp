#include <Zel/Db/Firebird/Detail/ParameterBinder.h>
#include <Zel/Db/Firebird/Detail/RowFormat.h>
#include <Zel/Db/Firebird/Detail/Session.h>
#include <Zel/Db/Firebird/FirebirdConnection.h>
#include <Zel/Db/Firebird/FirebirdRecordset.h>
#include <Zel/Db/Firebird/FirebirdStatement.h>
#include <Zel/InvalidOperationException.h>
#include <algorithm>
#include <cctype>
#include <string_view>

namespace Zel::Db::Firebird {
namespace {

namespace Fb = ::Firebird;

// The words of an SQL text past blanks and comments: enough to tell what kind of statement it is.
class Words {
public:
    explicit Words(std::string_view sql) : m_sql(sql) {}

    // The next word upper-cased, a quoted name as it stands, or one other character; empty at the end.
    std::string next() {
        skipBlanks();
        if (m_at >= m_sql.size()) return {};
        const std::size_t start = m_at;
        if (m_sql[m_at] == '"') {
            m_at = std::min(m_sql.find('"', m_at + 1), m_sql.size() - 1) + 1;
            return std::string(m_sql.substr(start, m_at - start));
        }
        std::string word;
        while (m_at < m_sql.size() && isWordCharacter(m_sql[m_at]))
            word.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(m_sql[m_at++]))));
        if (word.empty()) word.push_back(m_sql[m_at++]);
        return word;
    }
    // Past the ')' that closes a '(' just read.
    void skipParenthesised() {
        for (int depth = 1; depth > 0 && m_at < m_sql.size();) {
            const char c = m_sql[m_at++];
            if (c == '(') ++depth;
            if (c == ')') --depth;
            if (c == '\'' || c == '"') m_at = std::min(m_sql.find(c, m_at), m_sql.size() - 1) + 1;
        }
    }

private:
    static bool isWordCharacter(char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$';
    }
    void skipBlanks() {
        while (m_at < m_sql.size()) {
            if (std::isspace(static_cast<unsigned char>(m_sql[m_at]))) {
                ++m_at;
            } else if (m_sql.compare(m_at, 2, "--") == 0) {
                m_at = std::min(m_sql.find('\n', m_at), m_sql.size());
            } else if (m_sql.compare(m_at, 2, "/*") == 0) {
                m_at = std::min(m_sql.find("*/", m_at), m_sql.size() - 2) + 2;
            } else {
                break;
            }
        }
    }

    std::string_view m_sql;
    std::size_t m_at = 0;
};

// INSERT INTO t [(columns)] VALUES (...) and INSERT INTO t DEFAULT VALUES insert one row when they
// succeed; INSERT ... SELECT any number.
bool insertsOneRow(const std::string& sql) {
    Words words(sql);
    if (words.next() != "INSERT" || words.next() != "INTO" || words.next().empty()) return false;
    std::string word = words.next();
    if (word == "(") {
        words.skipParenthesised();
        word = words.next();
    }
    return word == "VALUES" || word == "DEFAULT";
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
        try {
            m_binder = std::make_unique<Detail::ParameterBinder>(session, input);
        } catch (...) {
            input->release();
            throw;
        }
        input->release();
        m_outputMetadata = m_statement->getOutputMetadata(status);
        session.check("Db: cannot describe the statement", m_sql);
        m_row = std::make_unique<Detail::RowFormat>(session, m_outputMetadata, m_sql);
        m_output.resize((m_row->messageLength() + 7) / 8 + 1);
        m_hasCursor = (flags & Fb::IStatement::FLAG_HAS_CURSOR) != 0;
        m_isDdl = type == isc_info_sql_stmt_ddl;
        m_insertsOneRow = type == isc_info_sql_stmt_insert && insertsOneRow(m_sql);
        if (!m_hasCursor && m_row->size() > 0) {
            const std::string word = Words(m_sql).next();
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

std::int64_t FirebirdStatement::run(const std::vector<Variant>& params, Fb::ITransaction* transaction,
                                    bool count) {
    Detail::Session& session = *m_session;
    Fb::CheckStatusWrapper* status = session.status();
    m_binder->bind(params, transaction, m_sql);
    // A statement prepared earlier would hold its tables in use and fail a DROP or ALTER at commit.
    if (m_isDdl && session.connection != nullptr) session.connection->releaseIdleStatements();
    const bool returns = m_row->size() > 0;
    m_statement->execute(status, transaction, m_binder->metadata(), m_binder->buffer(),
                         returns ? m_outputMetadata : nullptr, returns ? output() : nullptr);
    session.check("Db: statement failed", m_sql);
    // Asking costs a round into the engine, about as much as a small insert itself.
    if (!count) return -1;
    if (m_insertsOneRow) return 1;
    const auto affected = static_cast<std::int64_t>(m_statement->getAffectedRecords(status));
    session.check("Db: statement failed", m_sql);
    return affected;
}

std::int64_t FirebirdStatement::execute(const std::vector<Variant>& params) {
    Detail::Session& session = *m_session;
    if (m_statement == nullptr) throw DbException("Db: connection is closed", {}, {}, 0, m_sql);
    m_binder->requireCount(params.size(), m_sql);
    return inTransaction(session, m_sql, [&](Fb::ITransaction* transaction) -> std::int64_t {
        if (!m_hasCursor) return run(params, transaction, true);
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
            const std::int64_t affected = run(params, transaction, m_mayReturnNothing);
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
