#include <Zel/Db/Command.h>
#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>
#include <Zel/Orm/Detail/FieldConversion.h>
#include <Zel/Orm/Exception.h>
#include <Zel/Orm/Model/Model.h>
#include <Zel/Orm/Model/ModelClass.h>
#include <Zel/Orm/Object.h>
#include <Zel/Orm/Session.h>
#include <string>
#include <vector>

namespace Zel::Orm {

namespace {

std::int32_t readId(Db::Recordset& rows, const std::string& sql) {
    if (rows.eof()) throw Exception("ORM: the database returned no id | sql=" + sql);
    return static_cast<std::int32_t>(Detail::toInt64(rows.value(std::size_t{0})));
}

} // namespace

Object::Object() = default;

Object::~Object() = default;

std::string Object::displayName() const {
    return "[displayName() not implemented]";
}

void Object::registerWithModel(Model::Model*) {}
void Object::onAfterConstruct() {}
void Object::onBeforeDelete() {}
void Object::onAfterDelete() {}
void Object::onBeforeSave() {}
void Object::onAfterSave() {}
void Object::onAfterCommit() {}

void Object::init(Session* session, const Model::ModelClass* modelClass, std::int32_t id) {
    m_session = session;
    m_modelClass = modelClass;
    m_id = id;
    m_state = stateNew;
}

void Object::constructed() {
    onAfterConstruct();
}

std::int32_t Object::id() const {
    if (m_id == 0) throw Exception("ORM: Object has no ID yet");
    return m_id;
}

Session& Object::session() const {
    if (m_session == nullptr || m_state == stateObsolete) {
        throw Exception("ORM: The object is obsolete and not attached to any ORM.");
    }
    return *m_session;
}

Session* Object::orm() const {
    return &session();
}

Tx* Object::tx() const {
    return session().tx();
}

void Object::load(Db::Recordset& rows) {
    for (const Model::Property* property : m_modelClass->allProperties()) {
        if (const auto index = rows.findColumn(property->column())) property->set(*this, rows.value(*index));
    }
}

void Object::_loadRow(Db::Recordset& rows) {
    const auto& properties = m_modelClass->allProperties();
    const auto& indices = m_modelClass->_columnIndices(rows);
    for (std::size_t i = 0; i < properties.size(); ++i)
        properties[i]->set(*this, rows.value(indices[i]));
}

void Object::load(Db::Connection& connection) {
    const auto rows = m_modelClass->_loadCommand(id()).query(connection);
    if (rows->eof()) {
        throw Exception("ORM: Object not found | id=" + std::to_string(m_id) +
                        " | class=" + m_modelClass->name());
    }
    _loadRow(*rows);
}

void Object::load(const Variant& values) {
    for (const Model::Property* property : m_modelClass->allProperties()) {
        if (const Variant* value = values.find(property->name())) property->set(*this, *value);
    }
}

Variant Object::toVariant() const {
    Variant result = Variant::makeMap();
    result.setAt("id", m_id);
    for (const Model::Property* property : m_modelClass->allProperties()) {
        result.setAt(property->name(), property->get(*this));
    }
    return result;
}

bool Object::updated() const {
    for (const Model::Property* property : m_modelClass->allProperties()) {
        if (property->changed(*this)) return true;
    }
    return false;
}

bool Object::save() {
    Session& orm = session();
    orm._requireTx();
    const bool isNew = m_state == stateNew;
    if (!isNew && !updated()) return false;
    onBeforeSave();

    const Model::ModelClass& modelClass = *m_modelClass;
    const Model::Model& model = *orm.model();
    const auto& chain = modelClass.chain();
    std::vector<const Model::Property*> changed;
    if (!isNew) {
        for (const Model::Property* property : modelClass.allProperties()) {
            if (property->changed(*this)) changed.push_back(property);
        }
    }
    orm._onObjectWriting(*this, isNew, changed);

    Db::Connection& db = orm._connection();
    const std::int32_t originalId = m_id;
    try {
        if (isNew) {
            std::int32_t id = m_id;
            if (!modelClass.ormTriggers()) {
                if (id == 0) {
                    const Db::Command insert(model._insertInfoReturningSql(),
                                             {Variant(modelClass.dbClassName())});
                    id = readId(*insert.query(db), insert.sql());
                } else {
                    Db::Command(model._insertInfoSql(), {Variant(id), Variant(modelClass.dbClassName())})
                        .execute(db);
                }
                m_id = id;
            }
            for (std::size_t i = 1; i < chain.size(); ++i) {
                Db::Command insert;
                if (id == 0) {
                    insert.addColumnExpression("id", model._idExpression());
                } else {
                    insert.addColumn("id", id);
                }
                for (const auto& property : chain[i]->properties()) {
                    insert.addColumn(property->column(), property->get(*this));
                }
                if (id == 0) {
                    insert.buildInsert(chain[i]->table(), "id");
                    id = readId(*insert.query(db), insert.sql());
                    m_id = id;
                } else {
                    insert.buildInsert(chain[i]->table());
                    insert.execute(db);
                }
            }
        } else {
            for (std::size_t i = 1; i < chain.size(); ++i) {
                Db::Command update;
                for (const Model::Property* property : changed) {
                    // The chain's properties come table by table, so this stays linear in practice.
                    for (const auto& own : chain[i]->properties()) {
                        if (own.get() == property) update.addColumn(property->column(), property->get(*this));
                    }
                }
                if (update.hasColumns()) {
                    update.buildUpdate(chain[i]->table(), "id", m_id).execute(db);
                } else if (i == 1 && chain.size() > 2) {
                    // The first table is touched even when only derived tables changed, so that
                    // every write of the object takes the same row lock first.
                    modelClass._touchCommand(m_id).execute(db);
                }
            }
        }
    } catch (...) {
        m_id = originalId;
        throw;
    }

    for (const Model::Property* property : modelClass.allProperties())
        property->clearChanged(*this);
    m_state = stateSaved;
    if (isNew) orm._onObjectCreated(*this);
    onAfterSave();
    return true;
}

bool Object::erase() {
    Session& orm = session();
    orm._requireTx();
    if (m_state == stateNew) {
        orm._forgetNew(*this);
        setObsolete();
        return false;
    }
    onBeforeDelete();
    orm._onObjectWriting(*this, false, {});
    const Db::Command command = m_modelClass->ormTriggers() ? m_modelClass->_deleteFirstTableCommand(m_id)
                                                            : orm.model()->_deleteInfoCommand(m_id);
    command.execute(orm._connection());
    onAfterDelete();
    orm._onObjectErased(*this);
    return true;
}

bool Object::lock() {
    Session& orm = session();
    orm._requireTx();
    if (m_state == stateNew || updated()) return false;
    m_modelClass->_touchCommand(m_id).execute(orm._connection());
    return true;
}

void Object::setObsolete() noexcept {
    m_state = stateObsolete;
    m_session = nullptr;
}

void Object::setCommited() noexcept {
    m_state = stateCommitted;
}

} // namespace Zel::Orm
