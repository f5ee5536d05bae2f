#include <Zel/InvalidOperationException.h>
#include <Zel/Orm/Session.h>
#include <Zel/Orm/Tx.h>

namespace Zel::Orm {

Tx::Tx(Session* session) : m_session(session) {
    if (session == nullptr) ZEL_THROW_INVALID_OPERATION();
    session->_attach(*this);
}

Tx::~Tx() {
    if (m_session == nullptr) return;
    if (!m_finished) m_session->_rollbackTx();
    m_session->_detach(*this);
}

void Tx::commit() {
    if (m_finished || m_session == nullptr) ZEL_THROW_INVALID_OPERATION();
    if (m_nested) {
        m_finished = true;
        return;
    }
    m_session->_commitTx();
}

void Tx::rollback() {
    if (m_finished || m_session == nullptr) return;
    m_session->_rollbackTx();
}

} // namespace Zel::Orm
