#pragma once

#include <Zel/Export.h>
#include <Zel/Orm/Cache.h>
#include <Zel/Orm/Object.h>
#include <cstdint>
#include <memory>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

namespace Zel::Db {
class Command;
class Connection;
class Recordset;
} // namespace Zel::Db
namespace Zel::Events {
class IManager;
}
namespace Zel::Log {
class ILog;
}

namespace Zel::Orm {

class Tx;
namespace Model {
class Model;
class ModelClass;
class Property;
} // namespace Model

// One unit of work on one database connection: creates, loads, saves and erases objects, and keeps
// each object it has loaded or saved in its identity map, so one id is one object per session.
// Make sessions with SessionFactory::create.
//
//     auto session = factory.create();
//     auto tx = session->beginTx();
//     auto ada = session->create<Person>();
//     ada->name = "Ada";
//     session->save();                     // or ada->save()
//     tx->commit();
//     auto again = session->get<Person>(ada->id());
//
// Loading looks in the identity map, then the factory's shared cache, then the database. Writes
// (save, erase, lock, nextId, setNextId) need a transaction ("ORM: Transaction required"); after a
// commit the changes are announced through the event manager as "orm.objectsChanged" (see
// ObjectsChangedEvent).
//
// Closing the session rolls back an open transaction and makes every object of it obsolete.
//
// Thread safety: one session per thread. Sessions of one factory share the model and the cache,
// which are thread-safe; the session, its connection and its objects are not.
class ZEL_API Session {
public:
    Session(const Model::Model& model, std::shared_ptr<Cache> cache, std::shared_ptr<Log::ILog> log,
            std::shared_ptr<Events::IManager> events);
    virtual ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Exception "Session::Open(): The DB must be opened!" for a null or closed connection,
    // "Session::Open(): There is no class in the model!" for an empty model.
    void open(std::shared_ptr<Db::Connection> connection);
    void close() noexcept;
    bool opened() const noexcept { return m_connection != nullptr; }
    const std::shared_ptr<Db::Connection>& db() const noexcept { return m_connection; }

    // --- transactions ----------------------------------------------------------------------------
    // Exception "Nested transaction not supported" while one is open; to join an open transaction
    // make a Tx directly.
    std::unique_ptr<Tx> beginTx();
    // Commit or roll back the open transaction (Exception "ORM: Transaction required" without one).
    void commit();
    void rollback();
    bool isTx() const noexcept { return m_tx != nullptr; }
    // Tx scopes open on the transaction: 0 without one, 1 for the outer scope, more when joined.
    int txNestingLevel() const noexcept { return static_cast<int>(m_scopes.size()); }
    // The outer scope, or null.
    Tx* tx() const noexcept { return m_tx; }

    const Model::Model* model() const noexcept { return m_model; }
    const std::shared_ptr<Cache>& cache() const noexcept { return m_cache; }

    // --- objects ---------------------------------------------------------------------------------
    // A new object of the class (by model name); id 0 lets the database issue it on save.
    std::shared_ptr<Object> create(const std::string& className, std::int32_t id = 0);
    template <class C>
    std::shared_ptr<C> create(std::int32_t id = 0) {
        return std::static_pointer_cast<C>(create(classOf(typeid(C)), id));
    }
    // The object with that id, which must be of className or derived from it when className is not
    // empty. Missing: null, or Exception "ORM: Object not found | id=%d" (" | class=%s" with a
    // class) when throwIfMissing.
    std::shared_ptr<Object> object(std::int32_t id, const std::string& className = {},
                                   bool throwIfMissing = true);
    template <class C>
    std::shared_ptr<C> get(std::int32_t id, bool throwIfMissing = true) {
        return std::static_pointer_cast<C>(object(id, classOf(typeid(C)), throwIfMissing));
    }
    // Objects in the identity map (loaded or saved, not new).
    std::size_t objectCount() const noexcept { return m_objects.size(); }

    // --- writes ----------------------------------------------------------------------------------
    // Saves every new object (in creation order) and every changed one (by id); returns how many
    // it wrote.
    int save();
    // Deletes the object without loading it; only for classes with ORM triggers (Exception "ORM:
    // erase is supported only on classes with the ORM triggers | id=%d | class=%s" otherwise).
    void erase(std::int32_t id, const std::string& className);
    // An application lock on the number, held until the transaction ends: the row `id` of
    // tblOrmLocks is written, so a second transaction locking it waits or fails.
    void lock(std::int32_t id);
    // Advances the sequence by `count` and returns its new value; Exception when that does not fit
    // 32 bits.
    std::int32_t nextId(const std::string& sequence, std::int32_t count = 1);
    // The sequence's value becomes `value`: the next nextId(sequence) returns value + 1.
    void setNextId(const std::string& sequence, std::int32_t value);
    // The id the next new object will get, without taking it (no transaction needed).
    std::int32_t peekNextObjectId();

    // --- SQL of one's own --------------------------------------------------------------------------
    // Runs the query after prepareForQuery(), so that it sees the session's unsaved changes.
    std::shared_ptr<Db::Recordset> query(Db::Command& command);
    // Runs the text as it stands, without saving anything first.
    std::shared_ptr<Db::Recordset> queryNoFormat(const std::string& sql);
    // Inside a transaction, saves what changed so SQL sees it; outside one does nothing.
    void prepareForQuery();

    // --- internal, for Object and Tx -------------------------------------------------------------
    Db::Connection& _connection();
    void _requireTx() const;
    // Before an object's statements run: remembers it for commit and rollback.
    void _onObjectWriting(Object& object, bool created, const std::vector<const Model::Property*>& changed);
    void _onObjectCreated(Object& object);
    void _onObjectErased(Object& object);
    void _forgetNew(Object& object) noexcept;
    void _attach(Tx& tx);
    void _detach(Tx& tx) noexcept;
    void _commitTx();
    void _rollbackTx() noexcept;

private:
    struct Written {
        std::shared_ptr<Object> object; // null for an id erased without loading
        std::int32_t id = 0;
        bool created = false;
        bool erased = false;
        std::vector<const Model::Property*> changed;
    };

    void requireOpen() const;
    const std::string& classOf(std::type_index type) const;
    Written& written(Object& object);
    std::shared_ptr<Object> instantiate(const Model::ModelClass& modelClass, std::int32_t id);
    void announce() noexcept;
    void finishTx() noexcept;

    const Model::Model* m_model;
    std::shared_ptr<Cache> m_cache;
    std::shared_ptr<Log::ILog> m_log;
    std::shared_ptr<Events::IManager> m_events;
    std::shared_ptr<Db::Connection> m_connection;

    std::unordered_map<std::int32_t, std::shared_ptr<Object>> m_objects;
    // New objects by address, with their creation order.
    std::unordered_map<const Object*, std::pair<std::uint64_t, std::shared_ptr<Object>>> m_new;
    std::uint64_t m_newSequence = 0;

    Tx* m_tx = nullptr;
    std::vector<Tx*> m_scopes;
    std::vector<Written> m_written;
    std::unordered_map<const Object*, std::size_t> m_writtenIndex;
};

} // namespace Zel::Orm
