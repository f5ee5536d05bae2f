#pragma once

#include <Zel/Detail/ExtValue.h>
#include <Zel/Detail/VariantMap.h>
#include <Zel/LongBinary.h>
#include <Zel/Variant.h>
#include <string>
#include <utility>
#include <vector>

// The concrete shared payloads of Variant. Cloning copies the held object; the element Variants of
// a cloned map or vector share their own payloads, so copy-on-write works level by level.
namespace Zel::Detail {

struct ExtValueString final : ExtValue {
    explicit ExtValueString(std::string value) : m_value(std::move(value)) {}
    ExtValue* clone() const override { return new ExtValueString(m_value); }
    std::string m_value;
};

struct ExtValueLongBinary final : ExtValue {
    explicit ExtValueLongBinary(LongBinary value) : m_value(std::move(value)) {}
    ExtValue* clone() const override { return new ExtValueLongBinary(m_value); }
    LongBinary m_value;
};

struct ExtValueMap final : ExtValue {
    ExtValueMap() = default;
    explicit ExtValueMap(VariantMap value) : m_value(std::move(value)) {}
    ExtValue* clone() const override { return new ExtValueMap(m_value); }
    VariantMap m_value;
};

struct ExtValueVector final : ExtValue {
    ExtValueVector() = default;
    explicit ExtValueVector(std::vector<Variant> value) : m_value(std::move(value)) {}
    ExtValue* clone() const override { return new ExtValueVector(m_value); }
    std::vector<Variant> m_value;
};

} // namespace Zel::Detail
