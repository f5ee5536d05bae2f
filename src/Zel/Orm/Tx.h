#pragma once

#include <Zel/Export.h>

namespace Zel::Orm {

class Session;

// The scope of a session's transaction. The first Tx of a session begins the transaction; a Tx
// made while one is open joins it (nested() is true): its commit does nothing and leaves the
// decision to the outer scope, while its rollback rolls back the whole transaction and finishes
// every scope of it. The destructor rolls back a transaction that was neither committed nor rolled
// back, so an exception leaving the scope undoes its writes.
//
//     {
//         Zel::Orm::Tx tx(session.get());
//         person->name = "Ada";
//         person->save();
//         tx.commit();
//     }
//
// Commit marks the objects the transaction wrote committed (onAfterCommit) and announces the
// changes. After a rollback the objects written in the transaction are obsolete: the database no
// longer holds what their memory says (a new object's id was never issued, a changed row is back to
// its old values), so they leave the session's identity map and refuse further work; load them
// again for the database's values.
//
// Thread safety: belongs to the session's thread.
class ZEL_API Tx {
public:
    // InvalidOperationException for a null session, Exception "ORM is not opened!" for a closed one.
    explicit Tx(Session* session);
    ~Tx();

    Tx(const Tx&) = delete;
    Tx& operator=(const Tx&) = delete;

    // Null once the session closed.
    Session* orm() const noexcept { return m_session; }
    // InvalidOperationException when the scope is finished.
    void commit();
    // Does nothing when the scope is finished.
    void rollback();
    bool nested() const noexcept { return m_nested; }
    bool finished() const noexcept { return m_finished; }

private:
    friend class Session;

    Session* m_session;
    bool m_nested = false;
    bool m_finished = false;
};

} // namespace Zel::Orm
