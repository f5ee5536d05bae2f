#pragma once

#include <Zel/Xml/NodeType.h>
#include <cstdint>
#include <string_view>

// The storage behind Node and Attribute handles. Every view points into memory owned by the
// Document (its copy of the text or its arena), so nodes cost no allocation of their own.
//
// The records are kept small because a parse writes one per node and attribute, megabytes of them
// for a document of a few MB: pointers with 32-bit lengths instead of string_views (a document
// holds less than 4 GiB of text), the namespace as a pointer to the URI its declaration stored
// once, and no pointer to the last child (the first child's previous sibling is the last one).
namespace Zel::Xml::Detail {

struct AttributeData {
    const char* nameData;
    const char* valueData;
    const std::string_view* namespaceUri; // null for none
    AttributeData* next;
    std::uint32_t nameSize;
    std::uint32_t valueSize;
    std::uint32_t prefixLength; // 0 without a prefix, otherwise the length before the colon

    std::string_view name() const noexcept { return {nameData, nameSize}; }
    std::string_view value() const noexcept { return {valueData, valueSize}; }
    std::string_view namespaceView() const noexcept {
        return namespaceUri ? *namespaceUri : std::string_view();
    }
};

struct NodeData {
    // Set on an element with a text or CDATA child, so that writing it needs no look at them.
    static constexpr std::uint8_t hasTextChild = 1;

    NodeType type;
    std::uint8_t flags;
    std::uint32_t prefixLength;
    std::uint32_t nameSize;
    std::uint32_t valueSize;
    const char* nameData;
    const char* valueData;
    const std::string_view* namespaceUri; // null for none
    NodeData* parent;
    NodeData* firstChild;
    // Of the first child: the last child of the parent. The handles hide that.
    NodeData* previousSibling;
    NodeData* nextSibling;
    AttributeData* firstAttribute;

    std::string_view name() const noexcept { return {nameData, nameSize}; }
    std::string_view value() const noexcept { return {valueData, valueSize}; }
    std::string_view namespaceView() const noexcept {
        return namespaceUri ? *namespaceUri : std::string_view();
    }
    const NodeData* lastChild() const noexcept { return firstChild ? firstChild->previousSibling : nullptr; }
    // The true previous sibling: null for a first child.
    const NodeData* previous() const noexcept {
        return parent && parent->firstChild != this ? previousSibling : nullptr;
    }
};

} // namespace Zel::Xml::Detail
