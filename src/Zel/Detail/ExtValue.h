#pragma once

#include <Zel/Detail/VariantMap.h>
#include <Zel/Variant.h>

#include <string>
#include <utility>
#include <vector>

// The concrete shared payloads of Variant. Cloning copies the held object; the element Variants of
// a cloned map or vector share their own payloads, so copy-on-write works level by level.
namespace Zel {

struct Variant::ExtValueString final : Variant::ExtValue {
    explicit ExtValueString(std::string value) : m_value(std::move(value)) {}
    ExtValue* clone() const override { return new ExtValueString(m_value); }
    std::string m_value;
};

struct Variant::ExtValueLongBinary final : Variant::ExtValue {
    explicit ExtValueLongBinary(LongBinary value) : m_value(std::move(value)) {}
    ExtValue* clone() const override { return new ExtValueLongBinary(m_value); }
    LongBinary m_value;
};

struct Variant::ExtValueMap final : Variant::ExtValue {
    ExtValueMap() = default;
    explicit ExtValueMap(Detail::VariantMap value) : m_value(std::move(value)) {}
    ExtValue* clone() const override { return new ExtValueMap(m_value); }
    Detail::VariantMap m_value;
};

struct Variant::ExtValueVector final : Variant::ExtValue {
    ExtValueVector() = default;
    explicit ExtValueVector(std::vector<Variant> value) : m_value(std::move(value)) {}
    ExtValue* clone() const override { return new ExtValueVector(m_value); }
    std::vector<Variant> m_value;
};

} // namespace Zel
