#pragma once

#include <Zel/Orm/Detail/FieldConversion.h>
#include <Zel/Orm/Field.h>
#include <Zel/Orm/Model/Property.h>
#include <string>
#include <type_traits>

namespace Zel::Orm::Model {

// The property of a Field<T> member of class C, reached through its member pointer.
template <class C, class T>
class FieldProperty final : public Property {
public:
    FieldProperty(std::string name, Field<T> C::*member, Options options)
        : Property(std::move(name), std::move(options), std::string(Detail::FieldTraits<T>::sqlType)),
          m_member(member) {}

    Variant get(const Object& object) const override {
        return Detail::FieldTraits<T>::toVariant((static_cast<const C&>(object).*m_member).get());
    }
    void set(Object& object, const Variant& value) const override {
        (static_cast<C&>(object).*m_member).assignLoaded(Detail::FieldTraits<T>::fromVariant(value));
    }
    bool changed(const Object& object) const override {
        return (static_cast<const C&>(object).*m_member).changed();
    }
    void clearChanged(Object& object) const override { (static_cast<C&>(object).*m_member).clearChanged(); }

private:
    Field<T> C::*m_member;
};

} // namespace Zel::Orm::Model
