#pragma once

#include <Zel/Xml/NodeType.h>
#include <cstdint>
#include <string_view>

// The storage behind Node and Attribute handles. Every view points into memory owned by the
// Document (its copy of the text or its arena), so nodes cost no allocation of their own.
namespace Zel::Xml::Detail {

struct AttributeData {
    std::string_view name;
    std::string_view value;
    std::string_view namespaceUri;
    AttributeData* next;
    std::uint32_t prefixLength; // 0 without a prefix, otherwise the length before the colon
};

struct NodeData {
    // Set on an element with a text or CDATA child, so that writing it needs no look at them.
    static constexpr std::uint8_t hasTextChild = 1;

    NodeType type;
    std::uint8_t flags;
    std::uint32_t prefixLength;
    std::string_view name;
    std::string_view value;
    std::string_view namespaceUri;
    NodeData* parent;
    NodeData* firstChild;
    NodeData* lastChild;
    NodeData* previousSibling;
    NodeData* nextSibling;
    AttributeData* firstAttribute;
};

} // namespace Zel::Xml::Detail
