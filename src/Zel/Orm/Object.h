#pragma once

#include <Zel/Export.h>
#include <Zel/Variant.h>
#include <cstdint>
#include <memory>
#include <string>

namespace Zel::Db {
class Connection;
class Recordset;
} // namespace Zel::Db

namespace Zel::Orm {

class Session;
class Tx;
namespace Model {
class Model;
class ModelClass;
} // namespace Model

// Base of every persistent class. A persistent class declares its columns as Field<T> members and
// is mapped in the model (see Model::ModelClass); a Session creates, loads, saves and erases its
// objects:
//
//     class Person : public Zel::Orm::Object {
//     public:
//         Zel::Orm::Field<std::string> name;
//         Zel::Orm::Field<int> age;
//     };
//
// States (state()):
//   - stateNew (2): made by Session::create, not in the database yet; its id is 0 unless given.
//   - stateSaved (8): written in the session's current transaction, not committed yet.
//   - stateCommitted (16): matches a committed row: loaded, or saved and then committed.
//   - stateObsolete (32): its memory no longer stands for a row it may work on: it was erased, the
//     transaction that wrote it rolled back, or its session closed. It refuses every database
//     operation ("ORM: The object is obsolete and not attached to any ORM.") and has no session.
//
// Thread safety: an object belongs to its session, and a session to one thread at a time.
class ZEL_API Object : public std::enable_shared_from_this<Object> {
public:
    static constexpr std::int32_t stateNew = 2;
    static constexpr std::int32_t stateSaved = 8;
    static constexpr std::int32_t stateCommitted = 16;
    static constexpr std::int32_t stateObsolete = 32;

    Object();
    virtual ~Object();

    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    // Deletes the object's row (needs a transaction). Without ORM triggers the object-information
    // row goes and the class rows follow by ON DELETE CASCADE; with them the first table's row
    // goes and the triggers do the rest. The object leaves the identity map and becomes obsolete.
    // A new object is only dropped from its session: false, nothing written.
    virtual bool erase();
    virtual std::string displayName() const;
    // Where a class may declare its own mapping (see Model::registerClass). Does nothing here.
    virtual void registerWithModel(Model::Model* model);
    // Hooks; they do nothing here.
    virtual void onAfterConstruct();
    virtual void onBeforeDelete();
    virtual void onAfterDelete();
    virtual void onBeforeSave();
    virtual void onAfterSave();
    virtual void onAfterCommit();

    // Attaches the object to its session and class (Session does this).
    void init(Session* session, const Model::ModelClass* modelClass, std::int32_t id);
    // Runs onAfterConstruct once the object is filled.
    void constructed();

    // Exception "ORM: Object has no ID yet" while it is 0.
    std::int32_t id() const;
    bool hasId() const noexcept { return m_id != 0; }
    std::int32_t state() const noexcept { return m_state; }
    bool created() const noexcept { return m_state == stateNew; }
    bool saved() const noexcept { return m_state == stateSaved; }
    bool commited() const noexcept { return m_state == stateCommitted; }
    bool obsolete() const noexcept { return m_state == stateObsolete; }
    bool valid() const noexcept { return m_state != stateObsolete && m_session != nullptr; }
    const Model::ModelClass* modelClass() const noexcept { return m_modelClass; }

    // The session; Exception when the object is obsolete.
    Session* orm() const;
    // The session's open transaction, or null.
    Tx* tx() const;

    // Fills the fields from the current row, matching columns by name without regard to case;
    // fields whose column the row lacks stay as they are.
    void load(Db::Recordset& rows);
    // Reads the object's row again through `connection`; Exception when the row is gone.
    void load(Db::Connection& connection);
    // Fills the fields from a map of property name to value (as toVariant writes it); names the
    // map lacks stay as they are.
    void load(const Variant& values);
    // {"id": id, "<property>": value, ...}
    Variant toVariant() const;

    // Writes the object when it is new or changed (needs a transaction): true when it wrote.
    bool save();
    // Locks the object's row for the rest of the transaction by touching its first table; only for
    // a saved object without unsaved changes (false otherwise, nothing run).
    bool lock();
    // Whether any field changed since the object was loaded or saved.
    bool updated() const;

    void setObsolete() noexcept;
    void setCommited() noexcept;

    // Internal: fills every field from a row of the class's own load statement, by the column
    // positions worked out on the class's first load.
    void _loadRow(Db::Recordset& rows);

private:
    friend class Session;

    Session& session() const;

    std::int32_t m_state = stateNew;
    std::int32_t m_id = 0;
    const Model::ModelClass* m_modelClass = nullptr;
    Session* m_session = nullptr;
};

} // namespace Zel::Orm
