#pragma once

#include <Zel/Export.h>
#include <Zel/Orm/Model/ModelClass.h>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <typeindex>
#include <unordered_map>

namespace Zel::Db {
class Command;
}

namespace Zel::Orm::Model {

// The mapping of every persistent class, shared by all sessions of a factory.
//
// A program declares its classes, then marks the model configured (SessionFactory::configured),
// which resolves each class's base, builds the chains and their SQL, and checks the declaration:
//
//     model.addClass<Person>("Person").table("tblPerson").property("name", &Person::name);
//
// A class may also declare itself: override Object::registerWithModel and call
// model.registerClass<Person>().
//
// Thread safety: declaring is single-threaded; once configured the model is immutable and any
// number of sessions on any threads read it.
class ZEL_API Model {
public:
    Model();
    ~Model();

    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    // Names the change announcements ("<name>.objectsChanged"); empty means "orm".
    const std::string& name() const noexcept { return m_name; }
    Model& setName(std::string name);
    const std::string& idSequence() const noexcept { return m_idSequence; }
    Model& setIdSequence(std::string sequence);
    const std::string& objectInfoTable() const noexcept { return m_objectInfoTable; }
    Model& setObjectInfoTable(std::string table);

    // Declares class C (default-constructible, derived from Object) under `name`, which is also
    // its DB class name unless ModelClass::dbClassName says otherwise.
    template <class C>
    ModelClass& addClass(std::string name) {
        static_assert(std::is_base_of_v<Object, C>, "a persistent class derives from Zel::Orm::Object");
        return addClass(std::move(name), typeid(C),
                        [] { return std::shared_ptr<Object>(std::make_shared<C>()); });
    }
    ModelClass& addClass(std::string name, std::type_index type, ModelClass::Factory factory);
    // Lets C declare itself through its registerWithModel override.
    template <class C>
    void registerClass() {
        C prototype;
        prototype.registerWithModel(this);
    }

    bool configured() const noexcept { return m_configured; }
    // Resolves and checks the declaration; Exception naming the class at fault when a base is
    // unknown, a class has no table, two classes share a table or a DB class name, or a column
    // name repeats along a chain.
    void setConfigured();

    bool empty() const noexcept { return m_classes.empty(); }
    const std::map<std::string, std::unique_ptr<ModelClass>, std::less<>>& classes() const noexcept {
        return m_classes;
    }
    const ModelClass& root() const noexcept { return *m_root; }
    // Null when unknown.
    const ModelClass* getClass(std::string_view name) const;
    // Exception "ORM Model: Class not found | id=%d | class=%s" when unknown; `id` is the object
    // the caller was after, for the message.
    const ModelClass& getClassOrThrow(std::string_view name, std::int32_t id = 0) const;
    const ModelClass* getByDbClassName(std::string_view dbClassName) const;
    // Exception "ORM Model: DB class not found | id=%d | class=%s" when unknown.
    const ModelClass& getByDbClassNameOrThrow(std::string_view dbClassName, std::int32_t id = 0) const;
    const ModelClass* getByType(std::type_index type) const;

    // --- internal: statements for Session and Object ---------------------------------------------
    // "SELECT orm_class FROM <info table> WHERE id=<id>", prepared with the id as a parameter.
    Db::Command _classLookupCommand(std::int32_t id) const;
    // "DELETE FROM <info table> WHERE id=<id>", likewise.
    Db::Command _deleteInfoCommand(std::int32_t id) const;
    const std::string& _insertInfoReturningSql() const noexcept { return m_insertInfoReturning; }
    const std::string& _insertInfoSql() const noexcept { return m_insertInfo; }
    // "GEN_ID(<sequence>,1)"
    const std::string& _idExpression() const noexcept { return m_idExpression; }

private:
    friend class ModelClass;

    void requireDeclaring() const;

    std::string m_name;
    std::string m_idSequence = "genOrmObjectId";
    std::string m_objectInfoTable = "tblOrmObjects";
    bool m_configured = false;
    std::unique_ptr<ModelClass> m_root;
    std::map<std::string, std::unique_ptr<ModelClass>, std::less<>> m_classes;
    std::map<std::string, const ModelClass*, std::less<>> m_byDbClassName;
    std::unordered_map<std::type_index, const ModelClass*> m_byType;

    std::string m_classLookupPrefix;
    std::string m_classLookupPrepared;
    std::string m_deleteInfoPrefix;
    std::string m_deleteInfoPrepared;
    std::string m_insertInfoReturning;
    std::string m_insertInfo;
    std::string m_idExpression;
};

} // namespace Zel::Orm::Model
