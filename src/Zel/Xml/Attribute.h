#pragma once

#include <Zel/Xml/Detail/NodeData.h>
#include <string_view>

namespace Zel::Xml {

// A handle to one attribute of an element. Like Node it is a pointer in disguise: cheap to copy,
// valid only while its Document lives, null when a lookup found nothing (every accessor of a null
// Attribute returns an empty value).
class Attribute {
public:
    Attribute() noexcept = default;
    explicit Attribute(const Detail::AttributeData* data) noexcept : m_data(data) {}

    explicit operator bool() const noexcept { return m_data != nullptr; }
    bool isNull() const noexcept { return m_data == nullptr; }

    // The qualified name as written ("xlink:href").
    std::string_view name() const noexcept { return m_data ? m_data->name() : std::string_view(); }
    std::string_view prefix() const noexcept {
        return m_data ? std::string_view(m_data->nameData, m_data->prefixLength) : std::string_view();
    }
    std::string_view localName() const noexcept {
        if (!m_data) return {};
        return m_data->prefixLength ? m_data->name().substr(m_data->prefixLength + 1) : m_data->name();
    }
    // Empty for an attribute without prefix: unprefixed attributes are in no namespace.
    std::string_view namespaceUri() const noexcept {
        return m_data ? m_data->namespaceView() : std::string_view();
    }
    // Entities decoded and white space normalised as the XML rules for attribute values say.
    std::string_view value() const noexcept { return m_data ? m_data->value() : std::string_view(); }

    Attribute next() const noexcept { return Attribute(m_data ? m_data->next : nullptr); }

    bool operator==(const Attribute&) const noexcept = default;

private:
    const Detail::AttributeData* m_data = nullptr;
};

} // namespace Zel::Xml
