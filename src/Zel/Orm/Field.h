#pragma once

#include <Zel/Orm/FieldBase.h>
#include <utility>

namespace Zel::Orm {

// A persistent member of an Object: a value of type T that remembers being assigned, so that a
// save writes only what changed. T is bool, short, int, std::int64_t, double, std::string,
// Zel::Date, Zel::DateTime, Zel::LongBinary or std::optional of one of them (empty = NULL).
//
//     person->name = "Ada";           // marks the field changed
//     std::string n = person->name;   // reads it
//     person->photo.edit().realloc(64); // changes it in place, marked changed too
//
// The value the field is constructed with is the object's default, not a change.
template <class T>
class Field : public FieldBase {
public:
    using ValueType = T;

    Field() = default;
    Field(T value) : m_value(std::move(value)) {}
    Field(const Field&) = default;

    Field& operator=(T value) {
        m_value = std::move(value);
        markChanged();
        return *this;
    }
    // Assigning another field assigns its value: a change of this field whatever the other's flag.
    Field& operator=(const Field& other) { return *this = other.m_value; }

    const T& get() const noexcept { return m_value; }
    operator const T&() const noexcept { return m_value; }
    const T* operator->() const noexcept { return &m_value; }
    // The value for changing in place; counts as a change whether or not the caller changes it.
    T& edit() noexcept {
        markChanged();
        return m_value;
    }

    // Takes a value as read from the database: not a change.
    void assignLoaded(T value) {
        m_value = std::move(value);
        clearChanged();
    }

private:
    T m_value{};
};

} // namespace Zel::Orm
