#pragma once

#include <Zel/Export.h>
#include <Zel/Orm/Model/FieldProperty.h>
#include <Zel/Orm/Model/Property.h>
#include <Zel/Orm/Object.h>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <typeindex>
#include <vector>

namespace Zel::Db {
class Command;
class Recordset;
} // namespace Zel::Db

namespace Zel::Orm::Model {

class Model;

// How one persistent class maps onto the database: its name in the program, its DB class name
// (what the object-information table records), its table, its base class and its properties.
//
// Each class of an inheritance chain has a table of its own keyed by the object's id and holding
// the columns of that class's own properties; an object's row is the join of its chain's tables.
// The chain starts at the model's root, which stands for Object and has no table:
//
//     model.addClass<Person>("Person").table("tblPerson").property("name", &Person::name);
//     model.addClass<Employee>("Employee").base("Person").table("tblEmployee")
//         .property("salary", &Employee::salary);
//     // Employee's chain(): root, Person, Employee
//     // tableJoin():        "tblPerson t0 JOIN tblEmployee t1 ON t1.id=t0.id"
//
// With ORM triggers (declared on the first class of a chain, inherited by the classes below it) the
// database itself keeps the object-information table in step with the class tables: Schema creates
// triggers that record the class on insert and remove the record on delete, and derived rows go by
// ON DELETE CASCADE. Only such classes can be erased by id without loading (Session::erase).
//
// Thread safety: the declaring calls belong to the configuration phase, before the model is
// configured; after that the class is immutable and shared by every session of the factory.
class ZEL_API ModelClass {
public:
    using Factory = std::function<std::shared_ptr<Object>()>;

    // Use Model::addClass.
    ModelClass(Model* model, std::string name, std::type_index type, Factory factory);
    ~ModelClass();

    ModelClass(const ModelClass&) = delete;
    ModelClass& operator=(const ModelClass&) = delete;

    // --- declaration (before the model is configured) --------------------------------------------
    ModelClass& table(std::string table);
    // The base class by its name in the model; without one the class derives from the root.
    ModelClass& base(std::string className);
    // Defaults to the class's name.
    ModelClass& dbClassName(std::string dbClassName);
    ModelClass& ormTriggers(bool enabled);
    // A Field<T> member of C (the class itself, or a base of it that has no class of its own).
    template <class C, class T>
    ModelClass& property(std::string name, Field<T> C::*member, Property::Options options = {}) {
        static_assert(std::is_base_of_v<Object, C>,
                      "a property belongs to a class derived from Zel::Orm::Object");
        return addProperty(
            std::make_unique<FieldProperty<C, T>>(std::move(name), member, std::move(options)));
    }
    ModelClass& addProperty(std::unique_ptr<Property> property);

    // --- reading ---------------------------------------------------------------------------------
    const std::string& name() const noexcept { return m_name; }
    const std::string& dbClassName() const noexcept { return m_dbClassName; }
    const std::string& table() const noexcept { return m_table; }
    // Null for the root.
    const ModelClass* base() const noexcept { return m_base; }
    const std::string& baseName() const noexcept { return m_baseName; }
    bool ormTriggers() const noexcept { return m_ormTriggers; }
    bool isRoot() const noexcept { return m_model == nullptr; }
    std::type_index type() const noexcept { return m_type; }
    // This class's own properties, in declaration order.
    const std::vector<std::unique_ptr<Property>>& properties() const noexcept { return m_properties; }

    // Set when the model is configured:
    // the root, then each class down to this one.
    const std::vector<const ModelClass*>& chain() const noexcept { return m_chain; }
    // The class whose table comes first in the chain (chain()[1]).
    const ModelClass& firstTableClass() const noexcept { return *m_chain[1]; }
    // The properties of every class of the chain, from the first table down.
    const std::vector<const Property*>& allProperties() const noexcept { return m_allProperties; }
    // The chain's tables joined on id, aliases t0, t1, ... from the first table down.
    const std::string& tableJoin() const noexcept { return m_tableJoin; }
    // Whether this is `other` or derives from it.
    bool isA(const ModelClass& other) const noexcept;

    // A new, unattached object of this class.
    std::shared_ptr<Object> createObject() const;

    // --- internal: statements and load layout, for Session and Object ----------------------------
    // "SELECT * FROM <join> WHERE t0.id=<id>", prepared with the id as a parameter.
    Db::Command _loadCommand(std::int32_t id) const;
    // "UPDATE <first table> SET id=id WHERE id=<id>", likewise.
    Db::Command _touchCommand(std::int32_t id) const;
    // "DELETE FROM <first table> WHERE id=<id>", likewise.
    Db::Command _deleteFirstTableCommand(std::int32_t id) const;
    // For each of allProperties(), its column's index in a load's recordset. Worked out on the
    // first load and kept: every session of the factory reads the same schema.
    const std::vector<std::size_t>& _columnIndices(const Db::Recordset& rows) const;
    // Called by Model when it is configured.
    void _configure();

private:
    friend class Model;

    Model* m_model; // null for the root
    std::string m_name;
    std::type_index m_type;
    Factory m_factory;
    std::string m_dbClassName;
    std::string m_table;
    std::string m_baseName;
    const ModelClass* m_base = nullptr;
    bool m_ormTriggers = false;
    std::vector<std::unique_ptr<Property>> m_properties;

    std::vector<const ModelClass*> m_chain;
    std::vector<const Property*> m_allProperties;
    std::string m_tableJoin;
    std::string m_loadPrefix;
    std::string m_loadPrepared;
    std::string m_touchPrefix;
    std::string m_touchPrepared;
    std::string m_deletePrefix;
    std::string m_deletePrepared;

    mutable std::once_flag m_columnIndicesOnce;
    mutable std::vector<std::size_t> m_columnIndices;
};

} // namespace Zel::Orm::Model
