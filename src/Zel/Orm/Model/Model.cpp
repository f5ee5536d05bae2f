#include <Zel/Db/Command.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Orm/Exception.h>
#include <Zel/Orm/Model/Model.h>
#include <algorithm>
#include <cctype>
#include <set>
#include <utility>

namespace Zel::Orm::Model {

namespace {

std::string upper(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return result;
}

} // namespace

Model::Model() : m_root(std::make_unique<ModelClass>(nullptr, "Object", typeid(Object), nullptr)) {
    m_root->m_chain = {m_root.get()};
}

Model::~Model() = default;

void Model::requireDeclaring() const {
    if (m_configured) ZEL_THROW_INVALID_OPERATION();
}

Model& Model::setName(std::string name) {
    requireDeclaring();
    m_name = std::move(name);
    return *this;
}

Model& Model::setIdSequence(std::string sequence) {
    requireDeclaring();
    m_idSequence = std::move(sequence);
    return *this;
}

Model& Model::setObjectInfoTable(std::string table) {
    requireDeclaring();
    m_objectInfoTable = std::move(table);
    return *this;
}

ModelClass& Model::addClass(std::string name, std::type_index type, ModelClass::Factory factory) {
    requireDeclaring();
    if (name.empty() || m_classes.contains(name)) {
        throw Exception("ORM Model: class declared twice or without a name | class=" + name);
    }
    auto modelClass = std::make_unique<ModelClass>(this, name, type, std::move(factory));
    ModelClass& result = *modelClass;
    m_classes.emplace(std::move(name), std::move(modelClass));
    return result;
}

void Model::setConfigured() {
    requireDeclaring();
    // Bases first, so that every chain below can be walked.
    for (auto& [name, modelClass] : m_classes) {
        if (modelClass->m_table.empty()) throw Exception("ORM Model: class has no table | class=" + name);
        if (modelClass->m_baseName.empty()) {
            modelClass->m_base = m_root.get();
            continue;
        }
        const auto base = m_classes.find(modelClass->m_baseName);
        if (base == m_classes.end()) {
            throw Exception("ORM Model: base class not found | class=" + name +
                            " | base=" + modelClass->m_baseName);
        }
        modelClass->m_base = base->second.get();
    }
    std::map<std::string, const ModelClass*> tables;
    m_byDbClassName.clear();
    m_byType.clear();
    for (auto& [name, modelClass] : m_classes) {
        std::size_t depth = 0;
        for (const ModelClass* current = modelClass.get(); current != m_root.get();
             current = current->m_base) {
            if (++depth > m_classes.size())
                throw Exception("ORM Model: class derives from itself | class=" + name);
        }
        if (const auto [at, added] = tables.emplace(upper(modelClass->m_table), modelClass.get()); !added) {
            throw Exception("ORM Model: two classes share a table | table=" + modelClass->m_table +
                            " | class=" + at->second->m_name + " | other=" + name);
        }
        if (modelClass->m_dbClassName.empty() || modelClass->m_dbClassName.size() > 64) {
            throw Exception("ORM Model: DB class name must have 1 to 64 characters | class=" + name);
        }
        if (const auto [at, added] = m_byDbClassName.emplace(modelClass->m_dbClassName, modelClass.get());
            !added) {
            throw Exception(
                "ORM Model: two classes share a DB class name | dbClass=" + modelClass->m_dbClassName +
                " | class=" + at->second->m_name + " | other=" + name);
        }
        m_byType.emplace(modelClass->m_type, modelClass.get());
    }
    // ORM triggers belong to a whole chain: the first class decides.
    std::map<const ModelClass*, bool> triggers;
    for (auto& [name, modelClass] : m_classes) {
        modelClass->_configure();
        const ModelClass& first = modelClass->firstTableClass();
        if (modelClass->m_ormTriggers && !first.m_ormTriggers) {
            throw Exception("ORM Model: ORM triggers are declared on the first class of a chain | class=" +
                            name + " | first=" + first.m_name);
        }
        triggers[modelClass.get()] = first.m_ormTriggers;
        std::set<std::string> columns{"ID"};
        for (const Property* property : modelClass->m_allProperties) {
            if (!columns.insert(upper(property->column())).second) {
                throw Exception("ORM Model: column repeats in the class chain | class=" + name +
                                " | column=" + property->column());
            }
        }
    }
    for (auto& [modelClass, enabled] : triggers)
        const_cast<ModelClass*>(modelClass)->m_ormTriggers = enabled;

    m_classLookupPrefix = "SELECT orm_class FROM " + m_objectInfoTable + " WHERE id=";
    m_classLookupPrepared = m_classLookupPrefix + "?";
    m_deleteInfoPrefix = "DELETE FROM " + m_objectInfoTable + " WHERE id=";
    m_deleteInfoPrepared = m_deleteInfoPrefix + "?";
    m_insertInfoReturning = "INSERT INTO " + m_objectInfoTable + " (id, orm_class) VALUES (GEN_ID(" +
                            m_idSequence + ",1), ?) RETURNING id";
    m_insertInfo = "INSERT INTO " + m_objectInfoTable + " (id, orm_class) VALUES (?, ?)";
    m_idExpression = "GEN_ID(" + m_idSequence + ",1)";
    m_configured = true;
}

const ModelClass* Model::getClass(std::string_view name) const {
    const auto found = m_classes.find(name);
    return found == m_classes.end() ? nullptr : found->second.get();
}

const ModelClass& Model::getClassOrThrow(std::string_view name, std::int32_t id) const {
    if (const ModelClass* found = getClass(name)) return *found;
    throw Exception("ORM Model: Class not found | id=" + std::to_string(id) +
                    " | class=" + std::string(name));
}

const ModelClass* Model::getByDbClassName(std::string_view dbClassName) const {
    const auto found = m_byDbClassName.find(dbClassName);
    return found == m_byDbClassName.end() ? nullptr : found->second;
}

const ModelClass& Model::getByDbClassNameOrThrow(std::string_view dbClassName, std::int32_t id) const {
    if (const ModelClass* found = getByDbClassName(dbClassName)) return *found;
    throw Exception("ORM Model: DB class not found | id=" + std::to_string(id) +
                    " | class=" + std::string(dbClassName));
}

const ModelClass* Model::getByType(std::type_index type) const {
    const auto found = m_byType.find(type);
    return found == m_byType.end() ? nullptr : found->second;
}

Db::Command Model::_classLookupCommand(std::int32_t id) const {
    Db::Command command(m_classLookupPrefix + std::to_string(id));
    command.setPreparedForm(m_classLookupPrepared, {Variant(id)});
    return command;
}

Db::Command Model::_deleteInfoCommand(std::int32_t id) const {
    Db::Command command(m_deleteInfoPrefix + std::to_string(id));
    command.setPreparedForm(m_deleteInfoPrepared, {Variant(id)});
    return command;
}

} // namespace Zel::Orm::Model
