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
    NodeType type;
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
