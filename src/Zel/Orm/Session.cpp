#include <Zel/Db/Command.h>
#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>
#include <Zel/Events/IManager.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Log/ILog.h>
#include <Zel/Orm/Detail/FieldConversion.h>
#include <Zel/Orm/Exception.h>
#include <Zel/Orm/Model/Model.h>
#include <Zel/Orm/ObjectsChangedEvent.h>
#include <Zel/Orm/Session.h>
#include <Zel/Orm/Tx.h>
#include <algorithm>
#include <limits>
#include <set>
#include <utility>

namespace Zel::Orm {

namespace {

std::string notFound(std::int32_t id, const Model::ModelClass* filter) {
    std::string message = "ORM: Object not found | id=" + std::to_string(id);
    if (filter != nullptr) message += " | class=" + filter->name();
    return message;
}

std::int32_t fitId(std::int64_t value, const std::string& sequence) {
    if (value > std::numeric_limits<std::int32_t>::max() ||
        value < std::numeric_limits<std::int32_t>::min()) {
        throw Exception("Session::nextId(): The ID for the '" + sequence +
                        "' sequence cannot fit the 32b integer!");
    }
    return static_cast<std::int32_t>(value);
}

Variant toVector(const auto& values) {
    Variant vector = Variant::makeVector();
    for (const auto& value : values)
        vector.push_back(Variant(value));
    return vector;
}

} // namespace

Session::Session(const Model::Model& model, std::shared_ptr<Cache> cache, std::shared_ptr<Log::ILog> log,
                 std::shared_ptr<Events::IManager> events)
    : m_model(&model), m_cache(cache ? std::move(cache) : std::make_shared<Cache>(0)), m_log(std::move(log)),
      m_events(std::move(events)) {}

Session::~Session() {
    close();
}

void Session::open(std::shared_ptr<Db::Connection> connection) {
    if (!connection || !connection->opened()) throw Exception("Session::Open(): The DB must be opened!");
    if (m_model->empty()) throw Exception("Session::Open(): There is no class in the model!");
    if (!m_model->configured()) ZEL_THROW_INVALID_OPERATION();
    close();
    m_connection = std::move(connection);
}

void Session::close() noexcept {
    _rollbackTx();
    for (auto& [id, object] : m_objects)
        object->setObsolete();
    for (auto& [address, entry] : m_new)
        entry.second->setObsolete();
    m_objects.clear();
    m_new.clear();
    for (Tx* scope : m_scopes) {
        scope->m_finished = true;
        scope->m_session = nullptr;
    }
    m_scopes.clear();
    m_connection.reset();
}

void Session::requireOpen() const {
    if (!m_connection) throw Exception("ORM is not opened!");
}

void Session::_requireTx() const {
    requireOpen();
    if (m_tx == nullptr) throw Exception("ORM: Transaction required");
}

Db::Connection& Session::_connection() {
    requireOpen();
    return *m_connection;
}

const std::string& Session::classOf(std::type_index type) const {
    if (const Model::ModelClass* modelClass = m_model->getByType(type)) return modelClass->name();
    throw Exception(std::string("ORM Model: Class not found | id=0 | class=") + type.name());
}

// --- transactions ------------------------------------------------------------------------------------

std::unique_ptr<Tx> Session::beginTx() {
    requireOpen();
    if (m_tx != nullptr) throw Exception("Nested transaction not supported");
    return std::make_unique<Tx>(this);
}

void Session::commit() {
    if (m_tx == nullptr) throw Exception("ORM: Transaction required");
    m_tx->commit();
}

void Session::rollback() {
    if (m_tx == nullptr) throw Exception("ORM: Transaction required");
    m_tx->rollback();
}

void Session::_attach(Tx& tx) {
    requireOpen();
    if (m_tx == nullptr) {
        m_connection->begin();
        m_tx = &tx;
        tx.m_nested = false;
    } else {
        tx.m_nested = true;
    }
    m_scopes.push_back(&tx);
}

void Session::_detach(Tx& tx) noexcept {
    std::erase(m_scopes, &tx);
    if (m_tx == &tx) m_tx = nullptr;
}

void Session::finishTx() noexcept {
    for (Tx* scope : m_scopes)
        scope->m_finished = true;
    m_tx = nullptr;
    m_written.clear();
    m_writtenIndex.clear();
}

void Session::_commitTx() {
    _requireTx();
    try {
        m_connection->commit();
    } catch (...) {
        _rollbackTx();
        throw;
    }
    std::vector<Written> written = std::move(m_written);
    finishTx();
    for (const Written& entry : written) {
        if (entry.id != 0) m_cache->erase(entry.id);
        if (entry.object && entry.object->m_state == Object::stateSaved) entry.object->setCommited();
    }
    for (const Written& entry : written) {
        if (!entry.object || !entry.object->commited()) continue;
        try {
            entry.object->onAfterCommit();
        } catch (const std::exception& error) {
            if (m_log)
                m_log->error("ORM: onAfterCommit threw | id=" + std::to_string(entry.id) +
                             " | error=" + error.what());
        }
    }
    if (!m_events) return;
    const std::string name =
        (m_model->name().empty() ? std::string("orm") : m_model->name()) + ".objectsChanged";
    if (!m_events->hasHandlers(name)) return;
    std::set<std::int32_t> ids[3];
    std::set<std::string> columns[3];
    for (const Written& entry : written) {
        if (entry.id == 0) continue;
        if (entry.erased) {
            ids[2].insert(entry.id);
        } else if (entry.created) {
            ids[0].insert(entry.id);
            for (const Model::Property* property : entry.object->modelClass()->allProperties()) {
                columns[0].insert(property->column());
            }
        } else if (!entry.changed.empty()) {
            ids[1].insert(entry.id);
            for (const Model::Property* property : entry.changed)
                columns[1].insert(property->column());
        }
    }
    static const char* const actions[3] = {"created", "updated", "erased"};
    for (int action = 0; action < 3; ++action) {
        if (ids[action].empty()) continue;
        Variant data = Variant::makeMap();
        data.setAt("action", actions[action]);
        data.setAt("objects", toVector(ids[action]));
        data.setAt("columns", toVector(columns[action]));
        try {
            m_events->raise(ObjectsChangedEvent(name, std::move(data)));
        } catch (const std::exception& error) {
            if (m_log)
                m_log->error("ORM: objectsChanged handler threw | event=" + name +
                             " | error=" + error.what());
        } catch (...) {
            if (m_log) m_log->error("ORM: objectsChanged handler threw | event=" + name);
        }
    }
}

void Session::_rollbackTx() noexcept {
    if (m_tx == nullptr) return;
    try {
        if (m_connection && m_connection->inTransaction()) m_connection->rollback();
    } catch (const std::exception& error) {
        // The connection may be gone; the server drops the transaction with it.
        if (m_log) m_log->warning(std::string("ORM: rollback failed | error=") + error.what());
    }
    for (const Written& entry : m_written) {
        if (entry.id != 0) m_cache->erase(entry.id);
        if (!entry.object) continue;
        const auto found = m_objects.find(entry.object->m_id);
        if (found != m_objects.end() && found->second == entry.object) m_objects.erase(found);
        m_new.erase(entry.object.get());
        entry.object->setObsolete();
    }
    finishTx();
}

// --- objects -----------------------------------------------------------------------------------------

std::shared_ptr<Object> Session::instantiate(const Model::ModelClass& modelClass, std::int32_t id) {
    std::shared_ptr<Object> object = modelClass.createObject();
    object->init(this, &modelClass, id);
    return object;
}

std::shared_ptr<Object> Session::create(const std::string& className, std::int32_t id) {
    requireOpen();
    const Model::ModelClass& modelClass = m_model->getClassOrThrow(className, id);
    std::shared_ptr<Object> object = instantiate(modelClass, id);
    m_new.emplace(object.get(), std::make_pair(m_newSequence++, object));
    object->constructed();
    return object;
}

std::shared_ptr<Object> Session::object(std::int32_t id, const std::string& className, bool throwIfMissing) {
    requireOpen();
    const Model::ModelClass* filter = className.empty() ? nullptr : &m_model->getClassOrThrow(className, id);
    const auto missing = [&]() -> std::shared_ptr<Object> {
        if (throwIfMissing) throw Exception(notFound(id, filter));
        return nullptr;
    };
    const auto accepts = [&](const Model::ModelClass& modelClass) {
        return !filter || modelClass.isA(*filter);
    };

    if (const auto found = m_objects.find(id); found != m_objects.end()) {
        return accepts(*found->second->modelClass()) ? found->second : missing();
    }

    if (const auto row = m_cache->find(id)) {
        const Model::ModelClass& modelClass = m_model->getByDbClassNameOrThrow(row->dbClass, id);
        if (!accepts(modelClass)) return missing();
        std::shared_ptr<Object> object = instantiate(modelClass, id);
        const auto& properties = modelClass.allProperties();
        for (std::size_t i = 0; i < properties.size(); ++i)
            properties[i]->set(*object, row->values[i]);
        object->m_state = Object::stateCommitted;
        m_objects.emplace(id, object);
        object->constructed();
        return object;
    }

    const std::uint64_t ticket = m_cache->ticket();
    std::string dbClass;
    {
        const auto rows = m_model->_classLookupCommand(id).query(*m_connection);
        if (rows->eof()) return missing();
        dbClass = static_cast<std::string>(rows->value(std::size_t{0}));
    }
    while (!dbClass.empty() && dbClass.back() == ' ')
        dbClass.pop_back();
    const Model::ModelClass* modelClass = m_model->getByDbClassName(dbClass);
    if (modelClass == nullptr)
        throw Exception("ORM: DB class not found. | class=" + dbClass + " | id=" + std::to_string(id));
    if (!accepts(*modelClass)) return missing();

    std::shared_ptr<Object> object;
    {
        const auto rows = modelClass->_loadCommand(id).query(*m_connection);
        if (rows->eof()) return missing();
        object = instantiate(*modelClass, id);
        if (m_cache->enabled()) {
            const auto& properties = modelClass->allProperties();
            const auto& indices = modelClass->_columnIndices(*rows);
            auto row = std::make_shared<Cache::Row>();
            row->dbClass = std::move(dbClass);
            row->values.reserve(properties.size());
            for (std::size_t i = 0; i < properties.size(); ++i) {
                Variant value = rows->value(indices[i]);
                properties[i]->set(*object, value);
                row->values.push_back(std::move(value));
            }
            m_cache->put(id, std::move(row), ticket);
        } else {
            object->_loadRow(*rows);
        }
    }
    object->m_state = Object::stateCommitted;
    m_objects.emplace(id, object);
    object->constructed();
    return object;
}

// --- writes ------------------------------------------------------------------------------------------

Session::Written& Session::written(Object& object) {
    const auto [found, added] = m_writtenIndex.emplace(&object, m_written.size());
    if (added) {
        Written entry;
        entry.object = object.shared_from_this();
        entry.id = object.m_id;
        m_written.push_back(std::move(entry));
    }
    return m_written[found->second];
}

void Session::_onObjectWriting(Object& object, bool created,
                               const std::vector<const Model::Property*>& changed) {
    Written& entry = written(object);
    entry.created = entry.created || created;
    entry.changed.insert(entry.changed.end(), changed.begin(), changed.end());
    if (object.m_id != 0) m_cache->erase(object.m_id);
}

void Session::_onObjectCreated(Object& object) {
    written(object).id = object.m_id;
    const auto found = m_new.find(&object);
    if (found != m_new.end()) {
        m_objects[object.m_id] = std::move(found->second.second);
        m_new.erase(found);
    } else {
        m_objects[object.m_id] = object.shared_from_this();
    }
    m_cache->erase(object.m_id);
}

void Session::_onObjectErased(Object& object) {
    Written& entry = written(object);
    entry.erased = true;
    entry.id = object.m_id;
    const auto found = m_objects.find(object.m_id);
    if (found != m_objects.end() && found->second.get() == &object) m_objects.erase(found);
    m_cache->erase(object.m_id);
    object.setObsolete();
}

void Session::_forgetNew(Object& object) noexcept {
    m_new.erase(&object);
}

int Session::save() {
    _requireTx();
    std::vector<std::pair<std::uint64_t, std::shared_ptr<Object>>> fresh;
    fresh.reserve(m_new.size());
    for (const auto& [address, entry] : m_new)
        fresh.push_back(entry);
    std::sort(fresh.begin(), fresh.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    int count = 0;
    for (const auto& [sequence, object] : fresh)
        count += object->save() ? 1 : 0;

    std::vector<std::shared_ptr<Object>> changed;
    for (const auto& [id, object] : m_objects) {
        if (object->updated()) changed.push_back(object);
    }
    std::sort(changed.begin(), changed.end(), [](const auto& a, const auto& b) { return a->m_id < b->m_id; });
    for (const auto& object : changed)
        count += object->save() ? 1 : 0;
    return count;
}

void Session::erase(std::int32_t id, const std::string& className) {
    _requireTx();
    const Model::ModelClass& modelClass = m_model->getClassOrThrow(className, id);
    if (!modelClass.ormTriggers()) {
        throw Exception("ORM: erase is supported only on classes with the ORM triggers | id=" +
                        std::to_string(id) + " | class=" + className);
    }
    if (const auto found = m_objects.find(id); found != m_objects.end()) {
        const std::shared_ptr<Object> object = found->second;
        object->erase();
        return;
    }
    modelClass._deleteFirstTableCommand(id).execute(*m_connection);
    Written entry;
    entry.id = id;
    entry.erased = true;
    m_written.push_back(std::move(entry));
    m_cache->erase(id);
}

void Session::lock(std::int32_t id) {
    _requireTx();
    Db::Command command("UPDATE OR INSERT INTO tblOrmLocks (id) VALUES (" + std::to_string(id) +
                        ") MATCHING (id)");
    command.setPreparedForm("UPDATE OR INSERT INTO tblOrmLocks (id) VALUES (?) MATCHING (id)", {Variant(id)});
    command.execute(*m_connection);
}

std::int32_t Session::nextId(const std::string& sequence, std::int32_t count) {
    _requireTx();
    const auto rows = m_connection->query("SELECT GEN_ID(" + sequence + "," + std::to_string(count) +
                                          ") AS id FROM RDB$DATABASE");
    return fitId(Detail::toInt64(rows->value("id")), sequence);
}

void Session::setNextId(const std::string& sequence, std::int32_t value) {
    _requireTx();
    m_connection->execute("SET GENERATOR " + sequence + " TO " + std::to_string(value));
}

std::int32_t Session::peekNextObjectId() {
    requireOpen();
    const std::string& sequence = m_model->idSequence();
    const auto rows = m_connection->query("SELECT GEN_ID(" + sequence + ",0) AS id FROM RDB$DATABASE");
    return fitId(Detail::toInt64(rows->value("id")) + 1, sequence);
}

std::shared_ptr<Db::Recordset> Session::query(Db::Command& command) {
    requireOpen();
    prepareForQuery();
    return m_connection->query(command);
}

std::shared_ptr<Db::Recordset> Session::queryNoFormat(const std::string& sql) {
    requireOpen();
    return m_connection->query(sql);
}

void Session::prepareForQuery() {
    if (m_tx != nullptr) save();
}

} // namespace Zel::Orm
