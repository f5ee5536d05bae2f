#include <Zel/Db/Command.h>
#include <Zel/Db/Recordset.h>
#include <Zel/Orm/Exception.h>
#include <Zel/Orm/Model/Model.h>
#include <Zel/Orm/Model/ModelClass.h>
#include <string>
#include <utility>

namespace Zel::Orm::Model {

namespace {

Db::Command idCommand(const std::string& prefix, const std::string& prepared, std::int32_t id) {
    Db::Command command(prefix + std::to_string(id));
    command.setPreparedForm(prepared, {Variant(id)});
    return command;
}

} // namespace

ModelClass::ModelClass(Model* model, std::string name, std::type_index type, Factory factory)
    : m_model(model), m_name(std::move(name)), m_type(type), m_factory(std::move(factory)),
      m_dbClassName(m_name) {}

ModelClass::~ModelClass() = default;

ModelClass& ModelClass::table(std::string table) {
    m_model->requireDeclaring();
    m_table = std::move(table);
    return *this;
}

ModelClass& ModelClass::base(std::string className) {
    m_model->requireDeclaring();
    m_baseName = std::move(className);
    return *this;
}

ModelClass& ModelClass::dbClassName(std::string dbClassName) {
    m_model->requireDeclaring();
    m_dbClassName = std::move(dbClassName);
    return *this;
}

ModelClass& ModelClass::ormTriggers(bool enabled) {
    m_model->requireDeclaring();
    m_ormTriggers = enabled;
    return *this;
}

ModelClass& ModelClass::addProperty(std::unique_ptr<Property> property) {
    m_model->requireDeclaring();
    m_properties.push_back(std::move(property));
    return *this;
}

bool ModelClass::isA(const ModelClass& other) const noexcept {
    for (const ModelClass* current = this; current != nullptr; current = current->m_base) {
        if (current == &other) return true;
    }
    return false;
}

std::shared_ptr<Object> ModelClass::createObject() const {
    return m_factory();
}

Db::Command ModelClass::_loadCommand(std::int32_t id) const {
    return idCommand(m_loadPrefix, m_loadPrepared, id);
}

Db::Command ModelClass::_touchCommand(std::int32_t id) const {
    return idCommand(m_touchPrefix, m_touchPrepared, id);
}

Db::Command ModelClass::_deleteFirstTableCommand(std::int32_t id) const {
    return idCommand(m_deletePrefix, m_deletePrepared, id);
}

const std::vector<std::size_t>& ModelClass::_columnIndices(const Db::Recordset& rows) const {
    std::call_once(m_columnIndicesOnce, [&] {
        std::vector<std::size_t> indices;
        indices.reserve(m_allProperties.size());
        for (const Property* property : m_allProperties) {
            const auto index = rows.findColumn(property->column());
            if (!index) {
                throw Exception("ORM: column not found | class=" + m_name +
                                " | column=" + property->column());
            }
            indices.push_back(*index);
        }
        m_columnIndices = std::move(indices);
    });
    return m_columnIndices;
}

void ModelClass::_configure() {
    // The base chain is resolved by Model; here the texts that only depend on it.
    m_chain.clear();
    for (const ModelClass* current = this; current != nullptr; current = current->m_base) {
        m_chain.insert(m_chain.begin(), current);
    }
    m_allProperties.clear();
    m_tableJoin.clear();
    for (std::size_t i = 1; i < m_chain.size(); ++i) {
        for (const auto& property : m_chain[i]->m_properties)
            m_allProperties.push_back(property.get());
        std::string alias = std::to_string(i - 1);
        alias.insert(alias.begin(), 't');
        if (i == 1) {
            m_tableJoin = m_chain[i]->m_table + " " + alias;
        } else {
            m_tableJoin += " JOIN " + m_chain[i]->m_table + " " + alias + " ON " + alias + ".id=t0.id";
        }
    }
    m_loadPrefix = "SELECT * FROM " + m_tableJoin + " WHERE t0.id=";
    m_loadPrepared = m_loadPrefix + "?";
    const std::string& firstTable = m_chain[1]->m_table;
    m_touchPrefix = "UPDATE " + firstTable + " SET id=id WHERE id=";
    m_touchPrepared = m_touchPrefix + "?";
    m_deletePrefix = "DELETE FROM " + firstTable + " WHERE id=";
    m_deletePrepared = m_deletePrefix + "?";
}

} // namespace Zel::Orm::Model
