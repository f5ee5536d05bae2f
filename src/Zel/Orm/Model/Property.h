#pragma once

#include <Zel/Export.h>
#include <Zel/Variant.h>
#include <string>

namespace Zel::Orm {
class Object;
}

namespace Zel::Orm::Model {

// One persistent member of a class, mapped onto one column of the class's table. It moves the
// member's value to and from the Variants the data-access layer binds and reads, and knows whether
// the member changed since the object was loaded or saved. ModelClass::property makes them for
// Field<T> members (see FieldProperty); derive from it to map a member of another shape.
//
// Thread safety: immutable once the model is configured.
class ZEL_API Property {
public:
    struct Options {
        // The column; empty means the property's name. Names go into SQL as they stand, so a name
        // the engine reserves (Firebird's AT, USER, ...) needs a column of another name.
        std::string column;
        // The column's type when Schema creates the table; empty means the type's default
        // (VARCHAR(255) for strings, INTEGER for int, ...).
        std::string sqlType;
    };

    Property(std::string name, Options options, std::string defaultSqlType);
    virtual ~Property();

    Property(const Property&) = delete;
    Property& operator=(const Property&) = delete;

    const std::string& name() const noexcept { return m_name; }
    const std::string& column() const noexcept { return m_column; }
    const std::string& sqlType() const noexcept { return m_sqlType; }

    // The member's value of `object`, which is of the property's class or derived from it.
    virtual Variant get(const Object& object) const = 0;
    // Sets the member to a value read from the database; that is no change.
    virtual void set(Object& object, const Variant& value) const = 0;
    virtual bool changed(const Object& object) const = 0;
    virtual void clearChanged(Object& object) const = 0;

private:
    std::string m_name;
    std::string m_column;
    std::string m_sqlType;
};

} // namespace Zel::Orm::Model
