#pragma once

#include <Zel/Detail/VariantPayloads.h>
#include <Zel/Variant.h>
#include <string>
#include <utility>
#include <vector>

namespace Zel::Detail {

// The one way into a Variant's representation, for the library's own code: the JSON reader and
// writer, the iterator, the database binders. Nothing here checks the tag: callers have looked at
// type() first. Mutable references reach the payload as it is, shared or not; only Variant itself
// unshares before it changes one.
class VariantAccess {
public:
    using Word = Variant::Value;

    static const Word& word(const Variant& value) noexcept { return value.m_value; }
    static const ExtValue* payload(const Variant& value) noexcept { return value.m_value.ext; }

    static const std::string& string(const Variant& value) noexcept {
        return static_cast<const ExtValueString*>(value.m_value.ext)->m_value;
    }
    static std::string& string(Variant& value) noexcept {
        return static_cast<ExtValueString*>(value.m_value.ext)->m_value;
    }
    static const LongBinary& binary(const Variant& value) noexcept {
        return static_cast<const ExtValueLongBinary*>(value.m_value.ext)->m_value;
    }
    static LongBinary& binary(Variant& value) noexcept {
        return static_cast<ExtValueLongBinary*>(value.m_value.ext)->m_value;
    }
    static const VariantMap& map(const Variant& value) noexcept {
        return static_cast<const ExtValueMap*>(value.m_value.ext)->m_value;
    }
    static VariantMap& map(Variant& value) noexcept {
        return static_cast<ExtValueMap*>(value.m_value.ext)->m_value;
    }
    static const std::vector<Variant>& vector(const Variant& value) noexcept {
        return static_cast<const ExtValueVector*>(value.m_value.ext)->m_value;
    }
    static std::vector<Variant>& vector(Variant& value) noexcept {
        return static_cast<ExtValueVector*>(value.m_value.ext)->m_value;
    }

    // Every scalar assignment of Variant: release the old payload, then the tag and one field of a
    // word that is otherwise zero, written in place. (Moving in a temporary Variant instead would
    // read its word back right after the partial store into it, which stalls the processor.)
    template <class Field, class T>
    static Variant& assignScalar(Variant& target, Variant::Type type, Field Word::*field, T value) noexcept {
        target.release();
        target.m_type = type;
        target.m_value.i64 = 0;
        target.m_value.*field = value;
        return target;
    }

    // A map or vector Variant around an already built container, without copying it.
    static Variant adoptMap(VariantMap&& map) {
        return adopt(Variant::Type::Map, new ExtValueMap(std::move(map)));
    }
    static Variant adoptVector(std::vector<Variant>&& vector) {
        return adopt(Variant::Type::Vector, new ExtValueVector(std::move(vector)));
    }

private:
    static Variant adopt(Variant::Type type, ExtValue* payload) noexcept {
        Variant result;
        result.m_type = type;
        result.m_value.ext = payload;
        return result;
    }
};

} // namespace Zel::Detail
