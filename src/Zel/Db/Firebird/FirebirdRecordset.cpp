#include <Zel/Db/Firebird/Detail/RowFormat.h>
#include <Zel/Db/Firebird/Detail/Session.h>
#include <Zel/Db/Firebird/FirebirdRecordset.h>
#include <Zel/Db/Firebird/FirebirdStatement.h>

namespace Zel::Db::Firebird {

namespace Fb = ::Firebird;

FirebirdRecordset::FirebirdRecordset(std::shared_ptr<FirebirdStatement> statement, Fb::IResultSet* cursor,
                                     Fb::ITransaction* ownTransaction)
    : m_statement(std::move(statement)), m_cursor(cursor), m_ownTransaction(ownTransaction),
      m_fromCursor(true), m_eof(false) {
    m_statement->m_reader = this;
    try {
        fetch();
    } catch (...) {
        abandon();
        throw;
    }
}

FirebirdRecordset::FirebirdRecordset(std::shared_ptr<FirebirdStatement> statement, std::vector<Variant> row)
    : m_statement(std::move(statement)), m_row(std::move(row)), m_eof(m_row.empty()) {}

FirebirdRecordset::~FirebirdRecordset() {
    abandon();
}

const std::vector<Recordset::Column>& FirebirdRecordset::columns() const {
    return m_statement->m_row->columns();
}

void FirebirdRecordset::requireOpen() const {
    if (m_closed || m_statement->m_session->attachment == nullptr)
        throw DbException("Db: connection is closed", {}, {}, 0, m_statement->sql());
}

bool FirebirdRecordset::next() {
    requireOpen();
    if (m_eof) throw DbException("Db: read past the last row", {}, {}, 0, m_statement->sql());
    if (!m_fromCursor) {
        m_eof = true;
        m_row.clear();
        return false;
    }
    fetch();
    return !m_eof;
}

void FirebirdRecordset::fetch() {
    Detail::Session& session = *m_statement->m_session;
    const int result = m_cursor->fetchNext(session.status(), m_statement->output());
    if (result == Fb::IStatus::RESULT_OK) return;
    if (result != Fb::IStatus::RESULT_NO_DATA) {
        DbException error = session.error("Db: fetch failed", m_statement->sql());
        abandon();
        throw error;
    }
    finish();
}

void FirebirdRecordset::finish() {
    Detail::Session& session = *m_statement->m_session;
    m_eof = true;
    m_statement->m_reader = nullptr;
    m_cursor->close(session.status());
    if (session.failed()) {
        DbException error = session.error("Db: cannot close the cursor", m_statement->sql());
        m_cursor->release();
        m_cursor = nullptr;
        session.rollbackQuietly(m_ownTransaction);
        throw error;
    }
    m_cursor = nullptr;
    if (m_ownTransaction != nullptr) {
        try {
            session.commit(m_ownTransaction, m_statement->sql());
        } catch (...) {
            session.rollbackQuietly(m_ownTransaction);
            throw;
        }
    }
}

void FirebirdRecordset::abandon() noexcept {
    if (!m_fromCursor) return;
    Detail::Session& session = *m_statement->m_session;
    if (m_statement->m_reader == this) m_statement->m_reader = nullptr;
    m_eof = true;
    if (m_cursor != nullptr) {
        m_cursor->close(session.status());
        if (session.failed()) m_cursor->release();
        session.status()->init();
        m_cursor = nullptr;
    }
    // A cursor that was left before its end read nothing worth keeping: its transaction commits
    // all the same, since a selectable procedure may have written.
    if (m_ownTransaction != nullptr) {
        m_ownTransaction->commit(session.status());
        if (session.failed()) {
            session.status()->init();
            session.rollbackQuietly(m_ownTransaction);
        }
        m_ownTransaction = nullptr;
    }
}

Variant FirebirdRecordset::value(std::size_t index) {
    requireOpen();
    if (m_eof) throw DbException("Db: no current row", {}, {}, 0, m_statement->sql());
    const auto& all = columns();
    if (index >= all.size())
        throw DbException("Db: column index out of range | index=" + std::to_string(index) +
                          " | columns=" + std::to_string(all.size()));
    if (!m_fromCursor) return m_row[index];
    Detail::Session& session = *m_statement->m_session;
    return m_statement->m_row->read(session, m_statement->output(), index,
                                    m_ownTransaction != nullptr ? m_ownTransaction : session.transaction,
                                    m_statement->sql());
}

} // namespace Zel::Db::Firebird
